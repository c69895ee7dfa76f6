// The managed switch where single steps of it are not possible.

#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include "switch_from_source.h"

using kelt::tests::contentOf;
using kelt::tests::exists;
using kelt::tests::installedTree;
using kelt::tests::kInstalled;
using kelt::tests::kInstalledSiteList;
using kelt::tests::kServerSiteList;
using kelt::tests::kSiteCache;
using kelt::tests::kSiteListWithServer;
using kelt::tests::mountSmall;
using kelt::tests::namesIn;
using kelt::tests::putDirectory;
using kelt::tests::putFile;
using kelt::tests::putLoop;
using kelt::tests::putSource;
using kelt::tests::treeOf;
using Names = std::vector<std::string>;

namespace {

class ManagedModeFailures : public kelt::tests::SwitchFromSource {
 protected:
  /// What a failure after the copy of the site list leaves: no copied key, no source site list, the installed one.
  static void expectTakenBack(const Names& leftInInstallation) {
    EXPECT_EQ(namesIn(kInstalled), leftInInstallation);
    EXPECT_EQ(namesIn("/tmp/k"),
              (Names{"agentfipsmode", "req2048seckey.bin", "reqseckey.bin", "sr2048pubkey.bin", "srpubkey.bin"}));
    EXPECT_EQ(contentOf(kInstalledSiteList), kSiteListWithServer);
  }
};

TEST_F(ManagedModeFailures, ChangesNothingWhenTheSiteListCannotBeCopied) {
  putDirectory(kInstalledSiteList);
  const auto installed = installedTree();
  const auto source = treeOf("/tmp/k");
  EXPECT_EQ(run(false), "Error : Failed to copy sitelist file.\n\n");
  EXPECT_EQ(installedTree(), installed);
  EXPECT_EQ(treeOf("/tmp/k"), source);
}

TEST_F(ManagedModeFailures, ChangesNothingWhenThereIsNoRoomForTheSiteList) {
  const std::string large = kSiteListWithServer + "<!--" + std::string(32768, 'x') + "-->";
  putFile("/tmp/k/SiteList.xml", large);
  mountSmall(kInstalled + "/scratch/etc", 16384);
  putFile(kInstalledSiteList, "installed before");
  putFile(kSiteCache, "cached sites");
  const auto installed = installedTree();
  EXPECT_EQ(run(false), "Error : Failed to copy sitelist file.\n\n");
  EXPECT_EQ(installedTree(), installed);
  EXPECT_EQ(contentOf("/tmp/k/SiteList.xml"), large);
}

TEST_F(ManagedModeFailures, TakesEverythingBackWhenOneKeyCannotBeCopied) {
  putDirectory(kInstalled + "/agentfipsmode");
  EXPECT_EQ(run(false), "Error : Failed to copy key file, /tmp/k/agentfipsmode\n");
  expectTakenBack({"agentfipsmode", "scratch"});
  EXPECT_FALSE(exists(kServerSiteList));
  EXPECT_FALSE(exists(kSiteCache));
}

TEST_F(ManagedModeFailures, TriesEveryKeyInItsOrder) {
  for (const std::string& name : kelt::tests::kKeyNames)
    putDirectory(kInstalled + "/" + name);
  EXPECT_EQ(run(false),
            "Error : Failed to copy key file, /tmp/k/reqseckey.bin\n"
            "Error : Failed to copy key file, /tmp/k/req2048seckey.bin\n"
            "Error : Failed to copy key file, /tmp/k/agentfipsmode\n"
            "Error : Failed to copy key file, /tmp/k/srpubkey.bin\n"
            "Error : Failed to copy key file, /tmp/k/sr2048pubkey.bin\n");
  EXPECT_EQ(contentOf(kInstalledSiteList), kSiteListWithServer);
  EXPECT_FALSE(exists("/tmp/k/SiteList.xml"));
  EXPECT_FALSE(exists(kServerSiteList));
}

TEST_F(ManagedModeFailures, LeavesNoPartOfAKeyOnAFullDisk) {
  mountSmall(kInstalled, 65536);
  putDirectory(kInstalled + "/scratch/etc");
  putFile("/tmp/k/srpubkey.bin", std::string(131072, 'x'));
  EXPECT_EQ(run(false), "Error : Failed to copy key file, /tmp/k/srpubkey.bin\n");
  expectTakenBack({"scratch"});
}

TEST_F(ManagedModeFailures, CountsACacheThatCannotBeExamined) {
  putLoop(kServerSiteList);
  EXPECT_EQ(run(false), "Error : Accessing sitelist file, /opt/Quorvane/orv/scratch//ServerSiteList.xml\n");
  expectTakenBack({"scratch"});
  EXPECT_FALSE(exists(kSiteCache)) << "the other one is cleared all the same";
}

TEST_F(ManagedModeFailures, CountsACacheThatCannotBeDeleted) {
  ASSERT_EQ(::unlink(kServerSiteList.c_str()), 0);
  putDirectory(kServerSiteList);
  EXPECT_EQ(run(false), "Error : Failed to delete sitelist file, /opt/Quorvane/orv/scratch//ServerSiteList.xml\n");
  expectTakenBack({"scratch"});
  EXPECT_FALSE(exists(kSiteCache));
}

TEST_F(ManagedModeFailures, CountsASiteCacheThatCannotBeExamined) {
  putLoop(kSiteCache);
  EXPECT_EQ(run(false), "Error : Accessing sitecache file, /opt/Quorvane/orv/scratch/etc/sitecache.bin\n");
  expectTakenBack({"scratch"});
  EXPECT_FALSE(exists(kServerSiteList));
}

TEST_F(ManagedModeFailures, CountsASiteCacheThatCannotBeDeleted) {
  ASSERT_EQ(::unlink(kSiteCache.c_str()), 0);
  putDirectory(kSiteCache);
  EXPECT_EQ(run(false), "Error : Failed to delete sitecache file, /opt/Quorvane/orv/scratch/etc/sitecache.bin\n");
  expectTakenBack({"scratch"});
  EXPECT_FALSE(exists(kServerSiteList));
}

TEST_F(ManagedModeFailures, ReportsProblemsInTheOrderOfTheSteps) {
  putDirectory(kInstalled + "/agentfipsmode");
  putDirectory(kInstalled + "/srpubkey.bin");
  putLoop(kServerSiteList);
  putLoop(kSiteCache);
  EXPECT_EQ(run(false),
            "Error : Failed to copy key file, /tmp/k/agentfipsmode\n"
            "Error : Accessing sitelist file, /opt/Quorvane/orv/scratch//ServerSiteList.xml\n"
            "Error : Accessing sitecache file, /opt/Quorvane/orv/scratch/etc/sitecache.bin\n"
            "Error : Failed to copy key file, /tmp/k/srpubkey.bin\n");
  expectTakenBack({"agentfipsmode", "scratch", "srpubkey.bin"});
}

TEST_F(ManagedModeFailures, ReportsWhatCannotBeTakenBackAndGoesOn) {
  putDirectory(kInstalled + "/sr2048pubkey.bin");
  // Mount points are written in place, but cannot be deleted.
  const std::string stuckKey = kInstalled + "/reqseckey.bin";
  const std::string stuckSource = "/tmp/k/SiteList.xml";
  putFile(stuckKey, "installed before");
  for (const std::string& path : {stuckKey, stuckSource}) {
    ASSERT_EQ(::mount(path.c_str(), path.c_str(), nullptr, MS_BIND, nullptr), 0);
  }
  const std::string printed = run(false);
  for (const std::string& path : {stuckKey, stuckSource})
    ASSERT_EQ(::umount2(path.c_str(), MNT_DETACH), 0);
  EXPECT_EQ(printed,
            "Error : Failed to copy key file, /tmp/k/sr2048pubkey.bin\n"
            "Error : Failed to delete file, /tmp/k/SiteList.xml\n"
            "Error : Failed to delete file, /opt/Quorvane/orv//reqseckey.bin\n");
  EXPECT_EQ(namesIn(kInstalled), (Names{"reqseckey.bin", "scratch", "sr2048pubkey.bin"}));
  EXPECT_TRUE(exists("/tmp/k/SiteList.xml"));
}

TEST_F(ManagedModeFailures, RefusesAKeyThatIsNoFile) {
  ASSERT_EQ(::unlink("/tmp/k/agentfipsmode"), 0);
  ASSERT_EQ(::mkfifo("/tmp/k/agentfipsmode", 0600), 0);
  EXPECT_EQ(run(false), "Error : Failed to copy key file, /tmp/k/agentfipsmode\n");
  expectTakenBack({"scratch"});
}

}  // namespace
