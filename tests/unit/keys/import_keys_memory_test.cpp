// What an import without memory leaves behind.
#include <filesystem>

#include "import_fixture.h"
#include "support/child.h"
#include "support/failing_memory.h"

#include "keys/registry_keys.h"
#include "platform/crypto.h"

namespace kelt::tests {
namespace {

class ImportMemory : public ImportKeysTest {
 protected:
  /// What an import came to.
  struct Outcome {
    int status;  ///< 0: imported, 1: not, kThrew: an exception came through
    Lines log;
  };

  void SetUp() override {
    ImportKeysTest::SetUp();
    putSetting("2", "0");
    putKeys1024();
    // What the process loads and makes only once is there before memory runs out.
    ASSERT_TRUE(importKeys());
  }

  /// Imports from key files made anew, in a process of its own whose memory runs out as `fail` says.
  static Outcome importAfter(const std::function<void()>& fail) {
    putKeys1024();
    putFile(kRegistry, kAgentSection + bytesLine("AgentPublicKey", "kept"));
    std::filesystem::remove(kLog);
    int status = -1;
    const Output output = outputOf([&] {
      status = Child([&] {
                 fail();
                 return ImportingHelper().ImportKeys(false) ? 0 : 1;
               }).exitStatus();
    });
    EXPECT_EQ(output.err, "");
    return {status, logLines()};
  }

  static void expectFilesKept() {
    EXPECT_EQ(keyFilesIn(kInstall), (Lines{"reqseckey.bin", "srpubkey.bin"}));
    EXPECT_EQ(contentOf(kRegistry), kAgentSection + bytesLine("AgentPublicKey", "kept"));
  }
};

TEST_F(ImportMemory, FailsWhereTheCryptoLibraryCannotBeSetUp) {
  // Other objects of the logger's size may come before it; whatever becomes of those, the set-up is reached in the end.
  constexpr std::size_t kSize = sizeof(quorvane_com::QV::crypto::CryptShimLogger);
  bool bReached = false;
  for (int which = 1; which <= 50 && !bReached; ++which) {
    const Outcome outcome = importAfter([=] { failAllocation(kSize, which); });
    bReached = !outcome.log.empty() && outcome.log.back() == "E Unable to configure crypto library";
    if (bReached) {
      EXPECT_EQ(outcome.status, 1);
    }
  }
  EXPECT_TRUE(bReached);
  expectFilesKept();
}

TEST_F(ImportMemory, FailsWithoutAKeyManagerOrAHash) {
  const Outcome noKeys = importAfter([] { failUnthrowing(2); });
  EXPECT_EQ(noKeys.status, 1);
  EXPECT_EQ(noKeys.log, ExpectedLog{}.with({"E Unable to create key management object"}));
  expectFilesKept();
  const Outcome noHash = importAfter([] { failUnthrowing(3); });
  EXPECT_EQ(noHash.status, 1);
  EXPECT_EQ(noHash.log, ExpectedLog{}.with({}));
  expectFilesKept();
  EXPECT_EQ(importAfter([] { failUnthrowing(4); }).status, 0) << "there is no fourth";
}

TEST_F(ImportMemory, GoesOnWithoutTheHashesForTheMarkOfUnfinishedWork) {
  EXPECT_EQ(importAfter([] { failUnthrowing(1); }).status, 0);
}

TEST_F(ImportMemory, LeavesTheRegistrysValuesTogether) {
  const std::string values = kAgentSection + bytesLine("AgentPublicKey", "kept") + bytesLine("ServerPublicKey", "kept");
  constexpr std::size_t kTwoNames = 2 * sizeof(std::string);  // of what is to be deleted
  putFile(kRegistry, values);
  Child removing([] {
    failAllocation(kTwoNames, 1);
    return keys::removeKeys(false);
  });
  EXPECT_EQ(removing.exitStatus(), kThrew);
  EXPECT_EQ(contentOf(kRegistry), values);
}

}  // namespace
}  // namespace kelt::tests
