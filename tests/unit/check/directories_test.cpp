#include <unistd.h>

#include "collected.h"

using kelt::tests::Collected;
using kelt::tests::kInstalled;
using kelt::tests::mountReadOnly;
using kelt::tests::putDirectory;
using kelt::tests::putFile;
using kelt::tests::putProduct;
using kelt::tests::Trouble;

namespace {

class Directories : public kelt::tests::CheckedDevice {
 protected:
  Collected look() {
    Collected findings;
    checkDirectories(device(), findings);
    return findings;
  }
};

TEST_F(Directories, AreInOrder) {
  EXPECT_EQ(look().trouble(), Trouble{});
}

TEST_F(Directories, ThatAreMissingOrNoneAreAProblem) {
  putProduct(kelt::tests::kAgentName, {{"AgentBinDirectory", "/nowhere"}, {"FrameworkDataDirectory", "/tmp/file"}});
  putFile("/tmp/file", "");
  const Collected findings = look();
  EXPECT_EQ(findings.trouble(), (Trouble{"directory.bin problem", "directory.data problem"}));
  EXPECT_EQ(findings.fact("directory.data"), "The agent's data directory, /tmp/file, is a file.");
}

TEST_F(Directories, ThatAreReadOnlyAreAProblemWhereTheyAreWrittenTo) {
  mountReadOnly(kInstalled + "/scratch/etc");
  mountReadOnly(kInstalled + "/bin");
  EXPECT_EQ(look().trouble(), Trouble{"directory.site-list problem"});
}

TEST_F(Directories, OfTheConfigurationThatAreReadOnlyCostTheHash) {
  mountReadOnly("/etc/orv.d");
  EXPECT_EQ(look().trouble(), Trouble{"directory.config warning"});
}

TEST_F(Directories, MayHoldNothingButFilesWhereASwitchReplaces) {
  putFile(kInstalled + "/srpubkey.bin", "");
  ASSERT_EQ(::symlink("nowhere", (kInstalled + "/reqseckey.bin").c_str()), 0);
  EXPECT_EQ(look().trouble(), Trouble{});
  putDirectory(kInstalled + "/sr2048pubkey.bin");
  ASSERT_EQ(::symlink("sitecache.bin", (kInstalled + "/scratch/etc/sitecache.bin").c_str()), 0);
  EXPECT_EQ(look().trouble(), (Trouble{"directory.target problem", "directory.target problem"}));
}

}  // namespace
