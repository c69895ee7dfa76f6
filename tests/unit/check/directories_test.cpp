#include <sys/mount.h>
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

TEST_F(Directories, MayHoldAFileThatIsFixedByItself) {
  putFile(kInstalled + "/srpubkey.bin", "");
  mountReadOnly(kInstalled + "/srpubkey.bin");
  mountReadOnly(kelt::tests::kAgentConfig);
  const Collected findings = look();
  EXPECT_EQ(findings.trouble(), (Trouble{"directory.target problem", "directory.target warning"}));
  EXPECT_EQ(findings.report.checks.back().fact,
            kelt::tests::kAgentConfig + ", which a switch replaces, is on a file system that is read-only.");
}

TEST_F(Directories, HaveCachesThatCannotBeDeletedWhereTheyAreMounted) {
  const std::string cache = kInstalled + "/scratch/etc/sitecache.bin";
  putFile(cache, "");
  EXPECT_EQ(look().trouble(), Trouble{});
  ASSERT_EQ(::mount(cache.c_str(), cache.c_str(), nullptr, MS_BIND, nullptr), 0);
  EXPECT_EQ(look().trouble(), Trouble{"directory.target problem"});
}

TEST_F(Directories, IncludeTheKeyStoreWhereItIsThere) {
  EXPECT_EQ(look().states("directory.key-store"), "");
  putDirectory(kelt::tests::kStore, 0700);
  EXPECT_EQ(look().states("directory.key-store"), "ok");
  mountReadOnly(kelt::tests::kStore);
  EXPECT_EQ(look().trouble(), Trouble{"directory.key-store problem"});
}

TEST_F(Directories, ThatTheConfigurationMayNameOtherwiseAreUnknown) {
  kelt::check::Device unread = device();
  unread.bDirectoriesKnown = false;
  Collected findings;
  checkDirectories(unread, findings);
  EXPECT_EQ(findings.trouble(), (Trouble{"directory.bin unknown", "directory.data unknown"}));
  EXPECT_EQ(findings.fact("directory.data"), "The agent's data directory, " + kInstalled + "/scratch, may be another.");
}

}  // namespace
