// The managed switch where the source is, wholly or in part, what is installed, and where it is not what was fetched.

#include <algorithm>
#include <unistd.h>

#include "fake_server.h"
#include "support/log.h"
#include "switch_from_source.h"
#include "switch_under_test.h"

using kelt::tests::contentOf;
using kelt::tests::exists;
using kelt::tests::fakeServer;
using kelt::tests::kInstalled;
using kelt::tests::kInstalledSiteList;
using kelt::tests::kKeyNames;
using kelt::tests::kSiteListWithServer;
using kelt::tests::logLines;
using kelt::tests::namesIn;
using kelt::tests::putDirectory;
using kelt::tests::putFile;
using kelt::tests::putSource;
using kelt::tests::treeOf;
using Names = std::vector<std::string>;

namespace {

const std::string kEtc = kInstalled + "/scratch/etc";

class ManagedModeOneFile : public kelt::tests::Installation {
 protected:
  void SetUp() override {
    Installation::SetUp();
    fakeServer() = {};
  }

  /// Switches from `directory`, typed in /tmp/here; what was printed.
  static std::string switchFrom(const std::wstring& directory, int status, bool bProvision = false) {
    kelt::tests::SwitchUnderTest helper;
    const auto printed = kelt::tests::outputOf([&] {
      EXPECT_EQ(helper.PrepareORV(true, true, directory, L"/tmp/here", false, L"", false, bProvision, L"", L"", L""),
                status);
    });
    EXPECT_EQ(printed.err, "");
    return printed.out;
  }
  static std::string switchFetched(const std::wstring& directory, int status) {
    return switchFrom(directory, status, true);
  }

  /// Makes the copy of one key impossible, so that the switch fails in the end.
  static void spoilACopy() { putDirectory(kInstalled + "/agentfipsmode"); }

  static void expectKeysInstalled() {
    for (const std::string& name : kKeyNames)
      EXPECT_EQ(contentOf(kInstalled + "/" + name), name);
  }
};

TEST_F(ManagedModeOneFile, KeepsTheInstalledSiteListThatItWasSwitchedFrom) {
  putSource(kEtc);
  EXPECT_EQ(switchFrom(L"/opt/Quorvane/orv/scratch/etc", 0), "");
  EXPECT_EQ(contentOf(kInstalledSiteList), kSiteListWithServer);
  expectKeysInstalled();
}

TEST_F(ManagedModeOneFile, KeepsItAfterAFailedSwitchToo) {
  putSource(kEtc);
  spoilACopy();
  EXPECT_EQ(switchFrom(L"/opt/Quorvane/orv/scratch/etc", 1),
            "Error : Failed to copy key file, /opt/Quorvane/orv/scratch/etc/agentfipsmode\n");
  EXPECT_EQ(contentOf(kInstalledSiteList), kSiteListWithServer);
  EXPECT_EQ(namesIn(kInstalled), (Names{"agentfipsmode", "scratch"})) << "copies are taken back";
  const Names log = logLines();
  EXPECT_NE(std::find(log.begin(), log.end(), "I Kept, being what is installed: " + kInstalledSiteList), log.end());
}

TEST_F(ManagedModeOneFile, KeepsItWhenTheFilesWereFetchedThere) {
  putSource(kEtc);
  EXPECT_EQ(switchFetched(L"/opt/Quorvane/orv/scratch/etc", 0), "");
  EXPECT_EQ(contentOf(kInstalledSiteList), kSiteListWithServer);
  expectKeysInstalled();
  EXPECT_EQ(namesIn(kEtc), Names{"SiteList.xml"}) << "the fetched keys are deleted";
}

TEST_F(ManagedModeOneFile, KeepsItWithoutSitesWhenTheFilesWereFetchedThere) {
  putSource(kEtc, "<ns:SiteLists/>");
  EXPECT_EQ(switchFetched(L"/opt/Quorvane/orv/scratch/etc", 1), "");
  EXPECT_EQ(contentOf(kInstalledSiteList), "<ns:SiteLists/>");
}

TEST_F(ManagedModeOneFile, KeepsTheKeysThatItWasSwitchedFrom) {
  putSource(kInstalled);
  EXPECT_EQ(switchFrom(L"/opt/Quorvane/orv", 0), "");
  expectKeysInstalled();
  EXPECT_EQ(contentOf(kInstalledSiteList), kSiteListWithServer);
  EXPECT_TRUE(exists(kInstalled + "/SiteList.xml"));
}

TEST_F(ManagedModeOneFile, KeepsTheKeysAfterAFailedSwitchToo) {
  putSource(kInstalled, "<ns:SiteLists/>");
  EXPECT_EQ(switchFrom(L"/opt/Quorvane/orv", 1), "");
  expectKeysInstalled();
}

TEST_F(ManagedModeOneFile, KeepsTheKeysForTheImportWhenTheyWereFetchedThere) {
  putSource(kInstalled);
  EXPECT_EQ(switchFetched(L"/opt/Quorvane/orv", 0), "");
  expectKeysInstalled();
  EXPECT_FALSE(exists(kInstalled + "/SiteList.xml")) << "this one was copied";
  EXPECT_EQ(contentOf(kInstalledSiteList), kSiteListWithServer);
}

TEST_F(ManagedModeOneFile, KnowsTheInstallationUnderAnotherName) {
  putSource(kInstalled);
  ASSERT_EQ(::symlink(kInstalled.c_str(), "/tmp/k"), 0);
  EXPECT_EQ(switchFetched(L"/tmp/k", 0), "");
  expectKeysInstalled();
}

TEST_F(ManagedModeOneFile, KeepsWhatTheInstalledSiteListIsALinkTo) {
  putSource("/tmp/k");
  ASSERT_EQ(::symlink("/tmp/k/SiteList.xml", kInstalledSiteList.c_str()), 0);
  EXPECT_EQ(switchFetched(L"/tmp/k", 0), "");
  EXPECT_EQ(contentOf(kInstalledSiteList), kSiteListWithServer);
  EXPECT_EQ(namesIn("/tmp/k"), Names{"SiteList.xml"});
  putSource("/tmp/k");
  for (const std::string& name : kKeyNames)
    ASSERT_EQ(::unlink((kInstalled + "/" + name).c_str()), 0);
  spoilACopy();
  EXPECT_EQ(switchFrom(L"/tmp/k", 1), "Error : Failed to copy key file, /tmp/k/agentfipsmode\n");
  EXPECT_EQ(contentOf(kInstalledSiteList), kSiteListWithServer);
}

TEST_F(ManagedModeOneFile, KeepsBothNamesOfOneFile) {
  putSource("/opt/Quorvane/k");
  putDirectory(kEtc);
  for (const auto& [source, installed] : {std::pair{"/opt/Quorvane/k/SiteList.xml", kInstalledSiteList},
                                          std::pair{"/opt/Quorvane/k/srpubkey.bin", kInstalled + "/srpubkey.bin"}}) {
    // Hard links need one file system.
    ASSERT_EQ(::link(source, installed.c_str()), 0) << source;
  }
  EXPECT_EQ(switchFetched(L"/opt/Quorvane/k", 0), "");
  EXPECT_EQ(namesIn("/opt/Quorvane/k"), (Names{"SiteList.xml", "srpubkey.bin"}));
  EXPECT_EQ(contentOf(kInstalledSiteList), kSiteListWithServer);
  expectKeysInstalled();
}

TEST_F(ManagedModeOneFile, KeepsFilesThatWereNotFetched) {
  putDirectory("/tmp/process/keys");
  ASSERT_EQ(::chdir("/tmp/process"), 0);
  putSource("/tmp/here/keys");
  const auto source = treeOf("/tmp/here");
  // The server sends an archive without keys into the one, and the operator has a complete set in the other.
  fakeServer().deliver = [] { putFile("/tmp/process/keys/SiteList.xml", "fetched"); };
  const std::string printed = switchFetched(L"keys", 0);
  EXPECT_NE(printed.find("although sitelist file found in keys, all"), std::string::npos) << printed;
  EXPECT_EQ(treeOf("/tmp/here"), source);
  EXPECT_EQ(contentOf(kInstalledSiteList), kSiteListWithServer);
  EXPECT_EQ(logLines().back(), "I Kept, as nothing was fetched into this directory: /tmp/here/keys");
}

TEST_F(ManagedModeOneFile, DeletesWhatWasFetchedUnderAnotherNameOfTheDirectory) {
  putDirectory("/tmp/here");
  ASSERT_EQ(::symlink("/tmp/here", "/tmp/k"), 0);
  // Between the provisioning and the search the link goes; the last resort is the directory that it led to.
  fakeServer().deliver = [] { putSource("/tmp/here"); };
  kelt::tests::SwitchUnderTest helper;
  helper.m_onStop = [] { return ::unlink("/tmp/k") == 0; };
  const auto printed = kelt::tests::outputOf([&] {
    EXPECT_EQ(helper.PrepareORV(true, true, L"/tmp/k", L"/tmp/here", false, L"", false, true, L"", L"", L""), 0);
  });
  EXPECT_EQ(printed.out, "");
  EXPECT_EQ(namesIn("/tmp/here"), Names{});
}

TEST_F(ManagedModeOneFile, LogsWhatItDeletes) {
  putSource("/tmp/k");
  EXPECT_EQ(switchFetched(L"/tmp/k", 0), "");
  EXPECT_EQ(logLines(),
            (Names{"I Deleted as cached: /opt/Quorvane/orv/scratch//ServerSiteList.xml",
                   "I Deleted as cached: /opt/Quorvane/orv/scratch/etc/sitecache.bin",
                   "I Deleted as fetched: /tmp/k/SiteList.xml", "I Deleted as fetched: /tmp/k/reqseckey.bin",
                   "I Deleted as fetched: /tmp/k/req2048seckey.bin", "I Deleted as fetched: /tmp/k/agentfipsmode",
                   "I Deleted as fetched: /tmp/k/srpubkey.bin", "I Deleted as fetched: /tmp/k/sr2048pubkey.bin"}));
}

TEST_F(ManagedModeOneFile, LogsWhatItTakesBack) {
  putSource("/tmp/k");
  spoilACopy();
  ASSERT_EQ(::unlink(kelt::tests::kServerSiteList.c_str()), 0);
  ASSERT_EQ(::unlink(kelt::tests::kSiteCache.c_str()), 0);
  EXPECT_EQ(switchFrom(L"/tmp/k", 1), "Error : Failed to copy key file, /tmp/k/agentfipsmode\n");
  EXPECT_EQ(kelt::tests::textsLogged("I"),
            (Names{"Deleted after a failed switch: /tmp/k/SiteList.xml",
                   "Deleted after a failed switch: /opt/Quorvane/orv//reqseckey.bin",
                   "Deleted after a failed switch: /opt/Quorvane/orv//req2048seckey.bin",
                   "Deleted after a failed switch: /opt/Quorvane/orv//srpubkey.bin",
                   "Deleted after a failed switch: /opt/Quorvane/orv//sr2048pubkey.bin"}));
}

}  // namespace
