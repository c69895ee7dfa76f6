#include <sys/stat.h>
#include <unistd.h>

#include "installation.h"

#include "helper/unix_command_line_helper.h"

using kelt::helper::unixCommandLineHelper;
using kelt::tests::contentOf;
using kelt::tests::exists;
using kelt::tests::putDirectory;
using kelt::tests::putFile;
using kelt::tests::treeOf;
using Lines = std::vector<std::string>;

namespace {

const std::string kSummary =
    "Error : For managed mode, although sitelist file found in /tmp/k, all key files not present or accessible.\n";

class KeyFileCheck : public kelt::tests::PrivateDevice {
 protected:
  void SetUp() override {
    PrivateDevice::SetUp();
    kelt::tests::putSource("/tmp/k");
    putDirectory("/opt/Quorvane/orv/scratch");
  }

  static void without(const std::string& name) { ASSERT_EQ(::unlink(("/tmp/k/" + name).c_str()), 0); }

  /// Checks /tmp/k and expects a result and an output.
  static void expectCheck(bool result, const std::string& output) {
    unixCommandLineHelper helper;
    helper.SetSourceDir(L"/tmp/k");
    const auto printed = kelt::tests::outputOf([&] { EXPECT_EQ(helper.allKeyFilesPresent(), result); });
    EXPECT_EQ(printed.out, output);
    EXPECT_EQ(printed.err, "");
    EXPECT_EQ(helper.GetSourceDir(), L"/tmp/k");
  }
};

TEST_F(KeyFileCheck, IsContentWithACompleteDirectoryAndChangesNothing) {
  const auto before = treeOf("/tmp/k");
  expectCheck(true, "");
  EXPECT_EQ(treeOf("/tmp/k"), before);
}

TEST_F(KeyFileCheck, DoesNotLookAtTheSiteList) {
  without("SiteList.xml");
  expectCheck(true, "");
}

TEST_F(KeyFileCheck, MakesMissingLegacyFormsEmpty) {
  without("reqseckey.bin");
  without("srpubkey.bin");
  const auto before = treeOf("/tmp/k");
  expectCheck(true, "");
  for (const std::string path : {"/tmp/k/reqseckey.bin", "/tmp/k/srpubkey.bin"}) {
    EXPECT_EQ(contentOf(path), "");
    EXPECT_EQ(kelt::tests::modeOf(path), 0600U);
    ASSERT_EQ(::unlink(path.c_str()), 0);
  }
  EXPECT_EQ(treeOf("/tmp/k"), before);
}

TEST_F(KeyFileCheck, ReportsAMissingFullFormBesideItsLegacyForm) {
  without("req2048seckey.bin");
  expectCheck(false, "Error : Missing key file, /tmp/k/req2048seckey.bin\n" + kSummary);
  kelt::tests::putSource("/tmp/k");
  without("sr2048pubkey.bin");
  expectCheck(false, "Error : Missing key file, /tmp/k/sr2048pubkey.bin\n" + kSummary);
}

TEST_F(KeyFileCheck, MakesNoLegacyFormWithoutTheFullForm) {
  without("req2048seckey.bin");
  without("reqseckey.bin");
  auto before = treeOf("/tmp/k");
  expectCheck(false,
              "Error : Missing key file, /tmp/k/req2048seckey.bin\n"
              "Error : Missing key file, /tmp/k/reqseckey.bin\n" +
                  kSummary);
  EXPECT_EQ(treeOf("/tmp/k"), before);

  kelt::tests::putSource("/tmp/k");
  without("sr2048pubkey.bin");
  without("srpubkey.bin");
  before = treeOf("/tmp/k");
  expectCheck(false,
              "Error : Missing key file, /tmp/k/sr2048pubkey.bin\n"
              "Error : Missing key file, /tmp/k/srpubkey.bin\n" +
                  kSummary);
  EXPECT_EQ(treeOf("/tmp/k"), before);
}

TEST_F(KeyFileCheck, ReportsAMissingMarkerAndStillMakesTheLegacyForms) {
  for (const char* name : {"agentfipsmode", "reqseckey.bin", "srpubkey.bin"})
    without(name);
  expectCheck(false, "Error : Missing key file, /tmp/k/agentfipsmode\n" + kSummary);
  EXPECT_EQ(contentOf("/tmp/k/reqseckey.bin"), "");
  EXPECT_EQ(contentOf("/tmp/k/srpubkey.bin"), "");
  EXPECT_FALSE(exists("/tmp/k/agentfipsmode"));
}

TEST_F(KeyFileCheck, TellsOneMissingKeyFromTheOther) {
  without("req2048seckey.bin");
  without("srpubkey.bin");
  expectCheck(false, "Error : Missing key file, /tmp/k/req2048seckey.bin\n" + kSummary);
  EXPECT_EQ(contentOf("/tmp/k/srpubkey.bin"), "");
}

TEST_F(KeyFileCheck, ReportsEveryProblemInOrder) {
  kelt::tests::resetDevice();
  putDirectory("/tmp/k");
  expectCheck(false,
              "Error : Missing key file, /tmp/k/req2048seckey.bin\n"
              "Error : Missing key file, /tmp/k/reqseckey.bin\n"
              "Error : Missing key file, /tmp/k/agentfipsmode\n"
              "Error : Missing key file, /tmp/k/sr2048pubkey.bin\n"
              "Error : Missing key file, /tmp/k/srpubkey.bin\n" +
                  kSummary);
  EXPECT_EQ(kelt::tests::namesIn("/tmp/k"), std::vector<std::string>{});
}

TEST_F(KeyFileCheck, ReportsWhatCannotBeExaminedWhetherRequiredOrNot) {
  std::string expected;
  for (const std::string& name : kelt::tests::kKeyNames) {
    kelt::tests::putLoop("/tmp/k/" + name);
    expected += "Error : Accessing key file, /tmp/k/" + name + "\n";
  }
  const auto before = treeOf("/tmp/k");
  expectCheck(false, expected + kSummary);
  EXPECT_EQ(treeOf("/tmp/k"), before);
}

TEST_F(KeyFileCheck, RefusesWhatIsThereAndIsNoFileAndChangesNothing) {
  std::string expected;
  Lines logged;
  const auto expect = [&](const std::string& name) {
    expected += "Error : Accessing key file, /tmp/k/" + name + "\n";
    logged.push_back("E /tmp/k/" + name + ": not a regular file");
  };
  for (const std::string& name : kelt::tests::kKeyNames) {
    without(name);
    expect(name);
  }
  ASSERT_EQ(::mkfifo("/tmp/k/req2048seckey.bin", 0600), 0);
  putDirectory("/tmp/k/reqseckey.bin");
  ASSERT_EQ(::symlink("/dev/zero", "/tmp/k/agentfipsmode"), 0);
  ASSERT_EQ(::symlink("/tmp/k", "/tmp/k/sr2048pubkey.bin"), 0);
  ASSERT_EQ(::symlink("req2048seckey.bin", "/tmp/k/srpubkey.bin"), 0);
  const auto before = treeOf("/tmp/k");
  expectCheck(false, expected + kSummary);
  EXPECT_EQ(treeOf("/tmp/k"), before);
  EXPECT_EQ(kelt::tests::logLines(), logged);
}

TEST_F(KeyFileCheck, TakesALinkToAFile) {
  without("sr2048pubkey.bin");
  putFile("/tmp/elsewhere", "a key");
  ASSERT_EQ(::symlink("/tmp/elsewhere", "/tmp/k/sr2048pubkey.bin"), 0);
  expectCheck(true, "");
}

TEST_F(KeyFileCheck, RefusesAFileThatIsLargerThanAnyKey) {
  for (const std::string& name : kelt::tests::kKeyNames)
    putFile("/tmp/k/" + name, std::string(65536, 'k'));
  expectCheck(true, "");
  putFile("/tmp/k/srpubkey.bin", std::string(65537, 'k'));
  expectCheck(false, "Error : Accessing key file, /tmp/k/srpubkey.bin\n" + kSummary);
  EXPECT_EQ(kelt::tests::logLines(), Lines{"E /tmp/k/srpubkey.bin: larger than any key file"});
}

TEST_F(KeyFileCheck, MakesALegacyFormBesideAFullFormThatIsNoFile) {
  without("sr2048pubkey.bin");
  without("srpubkey.bin");
  putDirectory("/tmp/k/sr2048pubkey.bin");
  expectCheck(false, "Error : Accessing key file, /tmp/k/sr2048pubkey.bin\n" + kSummary);
  EXPECT_EQ(contentOf("/tmp/k/srpubkey.bin"), "");
}

TEST_F(KeyFileCheck, MakesALegacyFormBesideAFullFormThatCannotBeExamined) {
  kelt::tests::putLoop("/tmp/k/req2048seckey.bin");
  kelt::tests::putLoop("/tmp/k/sr2048pubkey.bin");
  without("reqseckey.bin");
  without("srpubkey.bin");
  expectCheck(false,
              "Error : Accessing key file, /tmp/k/req2048seckey.bin\n"
              "Error : Accessing key file, /tmp/k/sr2048pubkey.bin\n" +
                  kSummary);
  EXPECT_EQ(contentOf("/tmp/k/reqseckey.bin"), "");
  EXPECT_EQ(contentOf("/tmp/k/srpubkey.bin"), "");
}

TEST_F(KeyFileCheck, SaysNothingWhenALegacyFormCannotBeMade) {
  without("reqseckey.bin");
  ASSERT_EQ(::symlink("/tmp/elsewhere", "/tmp/k/reqseckey.bin"), 0);
  without("srpubkey.bin");
  kelt::tests::mountReadOnly("/tmp/k");
  expectCheck(true, "");
  EXPECT_FALSE(exists("/tmp/elsewhere"));
  EXPECT_FALSE(exists("/tmp/k/srpubkey.bin"));
}

TEST_F(KeyFileCheck, DoesNotFollowALinkWhenMakingALegacyForm) {
  without("reqseckey.bin");
  ASSERT_EQ(::symlink("/tmp/elsewhere", "/tmp/k/reqseckey.bin"), 0);
  expectCheck(true, "");
  EXPECT_FALSE(exists("/tmp/elsewhere"));
}

TEST_F(KeyFileCheck, NamesTheDirectoryAsItWasTyped) {
  without("agentfipsmode");
  unixCommandLineHelper helper;
  helper.SetSourceDir(L"/tmp/k/");
  const auto printed = kelt::tests::outputOf([&] { EXPECT_FALSE(helper.allKeyFilesPresent()); });
  EXPECT_EQ(printed.out,
            "Error : Missing key file, /tmp/k//agentfipsmode\n"
            "Error : For managed mode, although sitelist file found in /tmp/k/, all key files not present or "
            "accessible.\n");
}

}  // namespace
