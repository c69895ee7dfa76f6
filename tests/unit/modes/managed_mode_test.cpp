#include <sys/mount.h>
#include <unistd.h>

#include "fake_server.h"
#include "switch_from_source.h"
#include "switch_under_test.h"

using kelt::tests::contentOf;
using kelt::tests::exists;
using kelt::tests::installedTree;
using kelt::tests::kInstalled;
using kelt::tests::kInstalledSiteList;
using kelt::tests::kKeyNames;
using kelt::tests::kServerSiteList;
using kelt::tests::kSiteCache;
using kelt::tests::kSiteListWithServer;
using kelt::tests::namesIn;
using kelt::tests::putFile;
using kelt::tests::putSource;
using kelt::tests::treeOf;
using Names = std::vector<std::string>;

namespace {

class ManagedMode : public kelt::tests::SwitchFromSource {
 protected:
  /// The same with files that were fetched from the server.
  static std::string runProvisioned(int status) {
    kelt::tests::SwitchUnderTest helper;
    kelt::tests::fakeServer() = {};
    const auto printed = kelt::tests::outputOf([&] {
      EXPECT_EQ(helper.PrepareORV(true, true, L"/tmp/k", L"/tmp", false, L"", false, true, L"", L"", L""), status);
    });
    return printed.out;
  }

  static void expectKeysInstalled() {
    for (const std::string& name : kKeyNames)
      EXPECT_EQ(contentOf(kInstalled + "/" + name), name);
  }
};

TEST_F(ManagedMode, InstallsSiteListAndKeysAndClearsTheCaches) {
  const auto source = treeOf("/tmp/k");
  EXPECT_EQ(run(true), "");
  EXPECT_EQ(contentOf(kInstalledSiteList), kSiteListWithServer);
  expectKeysInstalled();
  EXPECT_EQ(namesIn(kInstalled), (Names{"agentfipsmode", "req2048seckey.bin", "reqseckey.bin", "scratch",
                                        "sr2048pubkey.bin", "srpubkey.bin"}));
  EXPECT_EQ(namesIn(kInstalled + "/scratch"), (Names{"etc", "logs"}));
  EXPECT_EQ(namesIn(kInstalled + "/scratch/etc"), Names{"SiteList.xml"});
  EXPECT_EQ(treeOf("/tmp/k"), source) << "the operator's files stay";
}

TEST_F(ManagedMode, NeverOpensASecretKeyToOthers) {
  EXPECT_EQ(run(true), "");
  EXPECT_EQ(kelt::tests::modeOf(kInstalled + "/reqseckey.bin"), 0600U);
  EXPECT_EQ(kelt::tests::modeOf(kInstalled + "/req2048seckey.bin"), 0600U);
}

TEST_F(ManagedMode, ReplacesWhatIsInstalledAndKeepsItsMode) {
  putFile(kInstalledSiteList, "old", 0640);
  putFile(kInstalled + "/srpubkey.bin", "a longer old key", 0644);
  EXPECT_EQ(run(true), "");
  EXPECT_EQ(contentOf(kInstalledSiteList), kSiteListWithServer);
  EXPECT_EQ(kelt::tests::modeOf(kInstalledSiteList), 0640U);
  EXPECT_EQ(contentOf(kInstalled + "/srpubkey.bin"), "srpubkey.bin");
  EXPECT_EQ(kelt::tests::modeOf(kInstalled + "/srpubkey.bin"), 0644U);
}

TEST_F(ManagedMode, NeedsNoCachesToClear) {
  ASSERT_EQ(::unlink(kServerSiteList.c_str()), 0);
  ASSERT_EQ(::unlink(kSiteCache.c_str()), 0);
  EXPECT_EQ(run(true), "");
}

TEST_F(ManagedMode, CopiesTheSiteListByteForByte) {
  const std::string odd =
      "<?xml version='1.0'?>\r\n<!-- \xC3\xA9 -->\t<ns:SiteLists  a = \"1\"><SiteList ><SpipeSite/>"
      "<SpipeSite ServerIP=''/></SiteList></ns:SiteLists>\r\n\r\n";
  putFile("/tmp/k/SiteList.xml", odd);
  EXPECT_EQ(run(true), "");
  EXPECT_EQ(contentOf(kInstalledSiteList), odd);
}

TEST_F(ManagedMode, ConvertsASiteListInLatin1) {
  const std::string before = "<ns:SiteLists><SiteList><SpipeSite ServerIP=\"1\" Name=\"";
  const std::string after = "\"/></SiteList></ns:SiteLists>";
  putFile("/tmp/k/SiteList.xml", before + "caf\xE9" + after);
  EXPECT_EQ(run(true), "Successfully convert the sitelist.xml file to utf8\n");
  EXPECT_EQ(contentOf("/tmp/k/SiteList.xml"), before + "caf\xC3\xA9" + after);
  EXPECT_EQ(contentOf(kInstalledSiteList), before + "caf\xC3\xA9" + after);
}

TEST_F(ManagedMode, RefusesASiteListThatDoesNotLoadEvenConverted) {
  const auto installed = installedTree();
  for (const std::string content : {"", "<ns:SiteLists>", "<SiteLists/>", "no xml"}) {
    putFile("/tmp/k/SiteList.xml", content);
    EXPECT_EQ(run(false), "Successfully convert the sitelist.xml file to utf8\nError : Fail to load sitelist file\n");
    EXPECT_EQ(contentOf("/tmp/k/SiteList.xml"), content);
  }
  EXPECT_EQ(installedTree(), installed);
}

TEST_F(ManagedMode, RefusesASiteListThatCannotBeConverted) {
  ASSERT_EQ(::unlink("/tmp/k/SiteList.xml"), 0);
  const auto installed = installedTree();
  EXPECT_EQ(run(false), "Error : Fail to convert the sitelist.xml file to utf8\nError : Fail to load sitelist file\n");
  EXPECT_EQ(installedTree(), installed);
}

TEST_F(ManagedMode, RefusesASiteListWithoutAServerAddress) {
  const auto installed = installedTree();
  for (const std::string site :
       {"<SpipeSite Name=\"x\"/>", "", "<Other ServerIP=\"1\"/>", "<x><SpipeSite ServerIP=\"1\"/></x>"}) {
    putFile("/tmp/k/SiteList.xml", "<ns:SiteLists><SiteList>" + site + "</SiteList></ns:SiteLists>");
    const auto source = treeOf("/tmp/k");
    EXPECT_EQ(run(false), "Error : Sitelist file invalid. Server ip not found.\n\n") << site;
    EXPECT_EQ(treeOf("/tmp/k"), source);
  }
  EXPECT_EQ(installedTree(), installed);
}

TEST_F(ManagedMode, FailsSilentlyForASiteListWithoutSites) {
  putFile("/tmp/k/SiteList.xml", "<ns:SiteLists><Other/></ns:SiteLists>");
  putFile(kInstalledSiteList, "installed before");
  const auto source = treeOf("/tmp/k");
  EXPECT_EQ(run(false), "");
  EXPECT_EQ(namesIn(kInstalled), Names{"scratch"}) << "the copied keys are taken back";
  EXPECT_FALSE(exists(kServerSiteList));
  EXPECT_FALSE(exists(kSiteCache));
  EXPECT_EQ(contentOf(kInstalledSiteList), "installed before");
  EXPECT_EQ(treeOf("/tmp/k"), source);
}

TEST_F(ManagedMode, DeletesFetchedFilesAfterASwitch) {
  putFile("/tmp/k/other", "not fetched");
  EXPECT_EQ(runProvisioned(0), "");
  EXPECT_EQ(contentOf(kInstalledSiteList), kSiteListWithServer);
  expectKeysInstalled();
  EXPECT_EQ(namesIn("/tmp/k"), Names{"other"});
}

TEST_F(ManagedMode, FailsWhenFetchedFilesCannotBeDeleted) {
  // A mount point can be read and written, but not deleted.
  const char* stuck = "/tmp/k/agentfipsmode";
  ASSERT_EQ(::mount(stuck, stuck, nullptr, MS_BIND, nullptr), 0);
  const std::string printed = runProvisioned(1);
  ASSERT_EQ(::umount2(stuck, MNT_DETACH), 0);
  EXPECT_EQ(printed, "Error : Failed to delete file, /tmp/k/agentfipsmode\n");
  EXPECT_EQ(namesIn("/tmp/k"), Names{"agentfipsmode"});
  expectKeysInstalled();
}

TEST_F(ManagedMode, DeletesFetchedFilesAfterAFailedSwitchAndMissesTheSiteListThen) {
  kelt::tests::putDirectory(kInstalled + "/agentfipsmode");
  EXPECT_EQ(runProvisioned(1),
            "Error : Failed to copy key file, /tmp/k/agentfipsmode\n"
            "Error : Failed to delete file, /tmp/k/SiteList.xml\n");
  EXPECT_EQ(namesIn("/tmp/k"), Names{});
  EXPECT_EQ(namesIn(kInstalled), (Names{"agentfipsmode", "scratch"}));
  EXPECT_EQ(contentOf(kInstalledSiteList), kSiteListWithServer);
}

TEST_F(ManagedMode, DeletesFetchedFilesForASiteListWithoutSites) {
  putFile("/tmp/k/SiteList.xml", "<ns:SiteLists/>");
  EXPECT_EQ(runProvisioned(1), "");
  EXPECT_EQ(namesIn("/tmp/k"), Names{});
  EXPECT_EQ(namesIn(kInstalled), Names{"scratch"});
}

TEST_F(ManagedMode, LeavesFetchedFilesWhenTheSwitchDoesNotBegin) {
  putFile("/tmp/k/SiteList.xml", "<ns:SiteLists><SiteList/></ns:SiteLists>");
  const auto source = treeOf("/tmp/k");
  EXPECT_EQ(runProvisioned(1), "Error : Sitelist file invalid. Server ip not found.\n\n");
  EXPECT_EQ(treeOf("/tmp/k"), source);
}

}  // namespace
