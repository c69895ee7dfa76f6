// An import that an earlier run began, as its mark tells.
#include <unistd.h>

#include "import_fixture.h"

#include "keys/begun_import.h"

namespace kelt::tests {
namespace {

using keys::BegunImport;
using keys::Stage;

const std::string kMark = kScratch + "/unfinished-work";
const std::string kFinishing = "I Finishing the key import that an earlier run began.";
const std::string kUnfinished = "E The key import that an earlier run began could not be finished.";

class InterruptedImport : public ImportKeysTest {
 protected:
  void SetUp() override {
    ImportKeysTest::SetUp();
    putSetting("2", "0");
    putFile(kStore + "/agent-public.der", "pair", 0600);
    putFile(kStore + "/agent-secret.der", "pair", 0600);
    putKeys2048(kUpdate);
    putFile(kUpdate + "/agentfipsmode", "0");
  }

  /// An import of 2048 bits from the update directory into an agent of 1024.
  static BegunImport importOf(Stage stage) {
    BegunImport import;
    import.stage = stage;
    import.fromUpdateDir = true;
    import.plan = {{keys::Mode::kNonFips, keys::KeySize::kHigher}, false};
    import.files = keys::identitiesOf(keys::keyFilesIn(keys::keyDirectory(true)));
    return import;
  }
  static void putMark(const BegunImport& import) { putFile(kMark, "work=key-import\n" + planOf(import), 0600); }
  static void removeKey(const std::string& name) { ASSERT_EQ(::unlink((kUpdate + "/" + name).c_str()), 0) << name; }
  static bool bPairThere() { return exists(kStore + "/agent-public.der") && exists(kStore + "/agent-secret.der"); }

  /// What a run that does something else makes of it.
  void finishForOther(std::optional<helper::Work> own = std::nullopt) {
    m_output = outputOf([&] { ImportingHelper().finishInterrupted(own); });
    EXPECT_EQ(m_output.out + m_output.err, "");
  }
};

TEST_F(InterruptedImport, IsRepeatedByItsOwnChoicesWhileKeysAreStored) {
  BegunImport import = importOf(Stage::kStoring);
  putSetting("2", "1");  // recorded already: nobody could tell any more that the pair is of another size
  putMark(import);
  EXPECT_TRUE(importKeys(true));
  EXPECT_EQ(m_output.out,
            "Could not delete file, /opt/Quorvane/orv/scratch//update/srpubkey.bin\n"
            "Could not delete file, /opt/Quorvane/orv/scratch//update/reqseckey.bin\n");
  EXPECT_EQ(namesIn(kStore), (Lines{"keyconf.ini", "server-public.der", "server-request-secret.der"}));
  EXPECT_EQ(contentOf(kConfig), configWith(kHash2048));
  EXPECT_EQ(keyFilesIn(kUpdate), Lines{});
  EXPECT_FALSE(exists(kMark));
  EXPECT_EQ(logLines().front(), kFinishing);
}

TEST_F(InterruptedImport, KeepsToTheNamesAndTheModeThatWereChosen) {
  putKeys1024(kUpdate);
  BegunImport import = importOf(Stage::kStoring);
  import.plan = {{keys::Mode::kNonFips, keys::KeySize::kLower}, true};
  putMark(import);
  EXPECT_TRUE(importKeys(true));
  EXPECT_EQ(contentOf(kStore + "/server-public.der"), testKey("rsa1024.spki.der"));
  EXPECT_EQ(contentOf(kKeyConf), "mode=2\nkeysize=0\n");
  EXPECT_TRUE(bPairThere());
  EXPECT_EQ(keyFilesIn(kUpdate), Lines{});
}

TEST_F(InterruptedImport, IsBegunAnewWithOtherFilesAndWithWhatWasRecordedBefore) {
  putMark(importOf(Stage::kStoring));
  putSetting("2", "1");
  removeKey("sr2048pubkey.bin");
  putKeys1024(kUpdate);
  EXPECT_TRUE(importKeys(true));
  EXPECT_EQ(contentOf(kKeyConf), "mode=2\nkeysize=0\n");
  EXPECT_EQ(contentOf(kStore + "/server-public.der"), testKey("rsa1024.spki.der"));
  EXPECT_TRUE(bPairThere()) << "which is of that size";
  EXPECT_EQ(keyFilesIn(kUpdate), Lines{});
  EXPECT_EQ(logLines().front(), "I Beginning anew the key import that an earlier run began.");
  EXPECT_FALSE(exists(kMark));
}

TEST_F(InterruptedImport, StillDiscardsThePairWhereItFailsWhenItIsBegunAnew) {
  putMark(importOf(Stage::kStoring));
  putSetting("2", "1");
  removeKey("sr2048pubkey.bin");
  EXPECT_FALSE(importKeys(true));
  EXPECT_EQ(logLines().back(), "E Unable to locate server keys ");
  EXPECT_FALSE(bPairThere());
  EXPECT_FALSE(exists(kMark));
}

TEST_F(InterruptedImport, OfASwitchGoesByTheRegistryThatWasEvenWithNewCopies) {
  BegunImport import = importOf(Stage::kCleaning);
  import.fromUpdateDir = false;
  import.bRegistryKeys = true;
  putMark(import);
  // All that the first run had stored is there, and the registry's keys of the agent are none that it was to take.
  putSetting("2", "1");
  putFile(kRegistry, kAgentSection + agentLines(testKey("rsa1024.spki.der"), testKey("rsa1024.pkcs8.der")));
  putKeys2048();
  putKeys1024();
  putFile(kInstall + "/agentfipsmode", "1");
  EXPECT_TRUE(importKeys(false));
  EXPECT_EQ(contentOf(kKeyConf), "mode=2\nkeysize=0\n") << "the marker does not count";
  EXPECT_EQ(contentOf(kStore + "/server-public.der"), testKey("rsa1024.spki.der"));
  EXPECT_EQ(namesIn(kStore), (Lines{"keyconf.ini", "server-public.der", "server-request-secret.der"}));
  EXPECT_EQ(contentOf(kRegistry), kAgentSection);
  EXPECT_EQ(keyFilesIn(kInstall), Lines{});
  EXPECT_FALSE(exists(kMark));
}

TEST_F(InterruptedImport, FromTheInstallationIsLeftToASwitchToManagedMode) {
  BegunImport import = importOf(Stage::kCleaning);
  putMark(import);
  finishForOther(helper::Work::kKeyImport);
  EXPECT_FALSE(exists(kMark)) << "from the update directory";
  import.fromUpdateDir = false;
  putMark(import);
  finishForOther(helper::Work::kKeyImport);
  EXPECT_TRUE(exists(kMark));
}

TEST_F(InterruptedImport, FailsAsTheFirstTryWould) {
  putFile(kUpdate + "/sr2048pubkey.bin", "no key");
  putMark(importOf(Stage::kStoring));
  EXPECT_FALSE(importKeys(true));
  EXPECT_EQ(logLines().back(), kUnfinished);
  EXPECT_TRUE(bPairThere()) << "of the size that is still recorded";
  EXPECT_EQ(keyFilesIn(kUpdate), (Lines{"agentfipsmode", "req2048seckey.bin", "sr2048pubkey.bin"}));
  EXPECT_FALSE(exists(kMark));
}

TEST_F(InterruptedImport, StillDiscardsThePairOfTheOldSizeWhereItCannotBeRepeated) {
  putMark(importOf(Stage::kStoring));
  putSetting("2", "1");
  removeKey("sr2048pubkey.bin");
  finishForOther();
  EXPECT_EQ(namesIn(kStore), Lines{"keyconf.ini"});
  EXPECT_EQ(logLines(), (Lines{kFinishing, kUnfinished}));
  EXPECT_EQ(keyFilesIn(kUpdate), (Lines{"agentfipsmode", "req2048seckey.bin"})) << "not stored, so not deleted";
  EXPECT_FALSE(exists(kMark));
}

TEST_F(InterruptedImport, KeepsThePairWhereTheNewSizeWasNotRecorded) {
  putMark(importOf(Stage::kStoring));
  removeKey("sr2048pubkey.bin");
  finishForOther();
  EXPECT_TRUE(bPairThere());
  EXPECT_FALSE(exists(kMark));
}

TEST_F(InterruptedImport, GoesOnDeletingOnceAllIsStored) {
  putFile(kRegistry, kAgentSection + serverLines("public", "secret") + bytesLine("AgentGUID", "guid"));
  putMark(importOf(Stage::kCleaning));
  removeKey("sr2048pubkey.bin");
  EXPECT_TRUE(importKeys(true));
  EXPECT_EQ(m_output.out,
            "Could not delete file, /opt/Quorvane/orv/scratch//update/sr2048pubkey.bin\n"
            "Could not delete file, /opt/Quorvane/orv/scratch//update/srpubkey.bin\n"
            "Could not delete file, /opt/Quorvane/orv/scratch//update/reqseckey.bin\n");
  EXPECT_EQ(contentOf(kRegistry), kAgentSection + bytesLine("AgentGUID", "guid"));
  EXPECT_EQ(keyFilesIn(kUpdate), Lines{});
  EXPECT_TRUE(bPairThere()) << "nothing is stored or discarded again";
  EXPECT_EQ(logLines(), Lines{kFinishing});
  EXPECT_FALSE(exists(kMark));
}

TEST_F(InterruptedImport, LeavesKeyFilesThatHaveComeSinceAndImportsThem) {
  putMark(importOf(Stage::kCleaning));
  removeKey("sr2048pubkey.bin");
  removeKey("req2048seckey.bin");
  putKeys1024(kUpdate);
  EXPECT_TRUE(importKeys(true));
  EXPECT_EQ(contentOf(kStore + "/server-public.der"), testKey("rsa1024.spki.der"));
  EXPECT_EQ(contentOf(kKeyConf), "mode=2\nkeysize=0\n") << "by the marker, which is the same";
  EXPECT_EQ(keyFilesIn(kUpdate), Lines{});
  EXPECT_FALSE(exists(kMark));
}

TEST_F(InterruptedImport, LeavesKeyFilesThatHaveComeSinceToWhomTheyAreFor) {
  putMark(importOf(Stage::kCleaning));
  removeKey("sr2048pubkey.bin");
  putKeys1024(kUpdate);
  finishForOther();
  EXPECT_EQ(keyFilesIn(kUpdate), (Lines{"agentfipsmode", "req2048seckey.bin", "reqseckey.bin", "srpubkey.bin"}))
      << "the marker may be of either";
  EXPECT_FALSE(exists(kStore + "/server-public.der"));
  EXPECT_FALSE(exists(kMark));
}

TEST_F(InterruptedImport, IsFinishedInSilenceBeforeAnotherImport) {
  putMark(importOf(Stage::kCleaning));
  putKeys1024();
  EXPECT_TRUE(importKeys(false));
  EXPECT_EQ(m_output.out,
            "Could not delete file, /opt/Quorvane/orv//sr2048pubkey.bin\n"
            "Could not delete file, /opt/Quorvane/orv//req2048seckey.bin\n"
            "Could not delete file, /opt/Quorvane/orv//agentfipsmode\n");
  EXPECT_EQ(keyFilesIn(kUpdate), Lines{});
  EXPECT_EQ(contentOf(kStore + "/server-public.der"), testKey("rsa1024.spki.der"));
  EXPECT_FALSE(exists(kMark));
}

TEST_F(InterruptedImport, LogsWhatCannotBeDeletedWhereTheConsoleIsNotItsOwn) {
  BegunImport import = importOf(Stage::kCleaning);
  removeKey("agentfipsmode");
  putDirectory(kUpdate + "/agentfipsmode");
  import.files.back() = "?";
  putMark(import);
  finishForOther();
  EXPECT_EQ(logLines(),
            (Lines{kFinishing, "E Could not delete file, /opt/Quorvane/orv/scratch//update/agentfipsmode"}));
  EXPECT_FALSE(exists(kMark));
}

TEST_F(InterruptedImport, IsFinishedByASwitchToUnmanagedModeToo) {
  putMark(importOf(Stage::kCleaning));
  finishForOther(helper::Work::kUnmanagedSwitch);
  EXPECT_EQ(keyFilesIn(kUpdate), Lines{});
  EXPECT_FALSE(exists(kMark));
}

TEST_F(InterruptedImport, IsNoneWhereTheMarkDoesNotReadAsOne) {
  putFile(kMark, "work=key-import\nstage=cleaning\n", 0600);
  finishForOther();
  EXPECT_EQ(keyFilesIn(kUpdate), (Lines{"agentfipsmode", "req2048seckey.bin", "sr2048pubkey.bin"}));
  EXPECT_EQ(logLines(), Lines{"E Removed, being no mark of an import: the mark of unfinished work"});
  EXPECT_FALSE(exists(kMark));
}

TEST_F(InterruptedImport, LeavesASwitchToUnmanagedModeToTheNextOne) {
  putFile(kMark, "work=unmanaged-switch\n", 0600);
  finishForOther(helper::Work::kUnmanagedSwitch);
  EXPECT_TRUE(exists(kMark));
  finishForOther();
  EXPECT_FALSE(exists(kMark));
}

TEST_F(InterruptedImport, LeavesNoMarkOfOneThatFails) {
  putFile(kUpdate + "/sr2048pubkey.bin", "no key");
  EXPECT_FALSE(importKeys(true));
  EXPECT_FALSE(exists(kMark));
}

}  // namespace
}  // namespace kelt::tests
