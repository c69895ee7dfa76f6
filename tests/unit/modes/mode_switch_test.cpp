#include <new>
#include <unistd.h>

#include "fake_server.h"
#include "installation.h"
#include "switch_under_test.h"

using kelt::tests::calls;
using kelt::tests::contentOf;
using kelt::tests::exists;
using kelt::tests::fakeServer;
using kelt::tests::installedTree;
using kelt::tests::kInstalledSiteList;
using kelt::tests::putFile;
using kelt::tests::putSource;
using kelt::tests::SwitchUnderTest;
using kelt::tests::treeOf;
using Steps = std::vector<std::string>;

namespace {

class ModeSwitch : public kelt::tests::Installation {
 protected:
  void SetUp() override {
    Installation::SetUp();
    fakeServer() = {};
    putSource("/tmp/k");
  }

  int managed(bool noStart = false) { return run(true, noStart, L"/tmp/k", L"/tmp"); }
  int unmanaged(bool noStart = false) { return run(false, noStart, L"", L""); }
  int provisioned(const std::wstring& server = L"", const std::wstring& user = L"",
                  const std::wstring& password = L"") {
    int status = -1;
    m_printed = kelt::tests::outputOf([&] {
                  status = m_helper.PrepareORV(true, false, L"/tmp/k", L"/tmp", false, L"", false, true, server, user,
                                               password);
                }).out;
    return status;
  }

  int run(bool bManaged, bool noStart, const std::wstring& sourceDir, const std::wstring& currentDir) {
    int status = -1;
    m_printed = kelt::tests::outputOf([&] {
                  status = m_helper.PrepareORV(bManaged, noStart, sourceDir, currentDir, false, L"", false, false, L"",
                                               L"", L"");
                }).out;
    return status;
  }

  SwitchUnderTest m_helper;
  std::string m_printed;
};

bool no() {
  return false;
}

TEST_F(ModeSwitch, StopsSwitchesImportsAndStarts) {
  m_helper.m_onStop = [] { return !exists(kInstalledSiteList); };
  m_helper.m_onImport = [] { return exists(kInstalledSiteList); };
  EXPECT_EQ(managed(), 0);
  EXPECT_EQ(m_helper.m_steps, (Steps{"stop", "import", "start"}));
  EXPECT_EQ(m_printed, "");
  EXPECT_EQ(contentOf(kInstalledSiteList), kelt::tests::kSiteListWithServer);
  EXPECT_EQ(fakeServer().asked, Steps{});
}

TEST_F(ModeSwitch, ResolvesTheSourceAgainstTheCurrentDirectory) {
  EXPECT_EQ(run(true, false, L"k", L"/tmp"), 0);
  EXPECT_TRUE(exists(kInstalledSiteList));
}

TEST_F(ModeSwitch, LeavesTheAgentAsItIsWhenItCannotBeStopped) {
  m_helper.m_onStop = no;
  const auto before = installedTree();
  EXPECT_EQ(managed(), 5);
  EXPECT_EQ(unmanaged(), 5);
  EXPECT_EQ(m_helper.m_steps, (Steps{"stop", "stop"}));
  EXPECT_EQ(installedTree(), before);
}

TEST_F(ModeSwitch, StartsTheAgentAfterAFailedSwitchAndImportsNothing) {
  ASSERT_EQ(::unlink("/tmp/k/agentfipsmode"), 0);
  EXPECT_EQ(managed(), 1);
  EXPECT_EQ(m_helper.m_steps, (Steps{"stop", "start"}));
}

TEST_F(ModeSwitch, StartsTheAgentAfterAFailedImport) {
  m_helper.m_onImport = no;
  EXPECT_EQ(managed(), 1);
  EXPECT_EQ(m_helper.m_steps, (Steps{"stop", "import", "start"}));
}

TEST_F(ModeSwitch, TellsAFailedStartWhateverTheSwitchCameTo) {
  m_helper.m_onStart = no;
  EXPECT_EQ(managed(), 4);
  m_helper.m_onImport = no;
  EXPECT_EQ(managed(), 4);
  ASSERT_EQ(::unlink("/tmp/k/SiteList.xml"), 0);
  EXPECT_EQ(managed(), 4);
}

TEST_F(ModeSwitch, DoesNotStartTheAgentWhenToldSo) {
  m_helper.m_onStart = no;
  EXPECT_EQ(managed(true), 0);
  EXPECT_EQ(unmanaged(true), 0);
  m_helper.m_onImport = no;
  EXPECT_EQ(managed(true), 1);
  EXPECT_EQ(m_helper.m_steps, (Steps{"stop", "import", "stop", "stop", "import"}));
}

TEST_F(ModeSwitch, SwitchesToUnmanagedWithoutKeys) {
  putFile(kInstalledSiteList, kelt::tests::kSiteListWithServer);
  EXPECT_EQ(unmanaged(), 0);
  EXPECT_EQ(m_helper.m_steps, (Steps{"stop", "start"}));
  EXPECT_EQ(contentOf(kInstalledSiteList).find("SpipeSite"), std::string::npos);
}

TEST_F(ModeSwitch, StartsTheAgentAfterAFailedUnmanagedSwitch) {
  EXPECT_EQ(unmanaged(), 1);
  EXPECT_EQ(m_helper.m_steps, (Steps{"stop", "start"}));
  EXPECT_EQ(m_printed, "Error : For unmanaged mode, sitelist file not found for processing.\n");
}

TEST_F(ModeSwitch, StartsTheAgentWhenMemoryRunsOut) {
  m_helper.m_onImport = []() -> bool { throw std::bad_alloc(); };
  EXPECT_EQ(managed(), 1);
  EXPECT_EQ(m_helper.m_steps, (Steps{"stop", "import", "start"}));
}

TEST_F(ModeSwitch, AsksTheServerFirstInNarrowText) {
  fakeServer().deliver = [this] { EXPECT_EQ(m_helper.m_steps, Steps{}); };
  EXPECT_EQ(provisioned(L"host:8443", L"us\u00E9r", L"p\u20AC ss"), 0);
  EXPECT_EQ(fakeServer().asked, (Steps{"/tmp/k|host:8443|us\xC3\xA9r|p\xE2\x82\xAC ss"}));
  EXPECT_EQ(m_helper.m_steps, (Steps{"stop", "import", "start"}));
  EXPECT_FALSE(exists("/tmp/k/SiteList.xml")) << "what was fetched is deleted after the switch";
}

TEST_F(ModeSwitch, LeavesTheAgentRunningWhenProvisioningFails) {
  const auto installed = installedTree();
  const auto source = treeOf("/tmp/k");
  for (const int status : {1, 2, 7, -1}) {
    fakeServer().status = status;
    EXPECT_EQ(provisioned(), 30 + status);
  }
  EXPECT_EQ(m_helper.m_steps, Steps{});
  EXPECT_EQ(installedTree(), installed);
  EXPECT_EQ(treeOf("/tmp/k"), source);
}

TEST_F(ModeSwitch, KeepsFilesThatWereNotFetched) {
  EXPECT_EQ(provisioned(), 0);
  putSource("/tmp/k");
  EXPECT_EQ(managed(), 0);
  EXPECT_TRUE(exists("/tmp/k/SiteList.xml"));
}

TEST_F(ModeSwitch, GivesTheRemainingArgumentsNoMeaning) {
  const int status = m_helper.PrepareORV(true, false, L"/tmp/k", L"/tmp", true, L"/tmp/log", true, false, L"server",
                                         L"user", L"password");
  EXPECT_EQ(status, 0);
  EXPECT_EQ(fakeServer().asked, Steps{});
  EXPECT_FALSE(exists("/tmp/log"));
}

/// The key import is told what to do; the service is the real one.
class ServiceSwitch : public SwitchUnderTest {
 public:
  bool StartORVService() override { return unixCommandLineHelper::StartORVService(); }
  bool StopORVService() override { return unixCommandLineHelper::StopORVService(); }
};

int managedWith(ServiceSwitch& helper) {
  return helper.PrepareORV(true, false, L"/tmp/k", L"/tmp", false, L"", false, false, L"", L"", L"");
}

TEST_F(ModeSwitch, RunsTheCommandsOfTheInstalledAgent) {
  const std::string agent = kelt::tests::putCommand("agent");
  kelt::tests::putProduct("ZENTORAGENT", {{"StartCommand", agent + " start"}, {"StopCommand", agent + " stop"}});
  ServiceSwitch helper;
  helper.m_onImport = no;
  EXPECT_EQ(managedWith(helper), 1);
  EXPECT_EQ(calls(), (Steps{"agent stop", "agent start"}));
}

TEST_F(ModeSwitch, TellsThatTheAgentCannotBeStartedAnyMore) {
  const std::string config = "/etc/orv.d/ZENTORAGENT/config.xml";
  const std::string stop = kelt::tests::putCommand("stop", "rm " + config);
  kelt::tests::putProduct("ZENTORAGENT", {{"StartCommand", "/tmp/missing"}, {"StopCommand", stop}});
  ServiceSwitch helper;
  EXPECT_EQ(managedWith(helper), 4);
  EXPECT_EQ(calls(), Steps{"stop"});
}

TEST_F(ModeSwitch, ChangesNothingWithoutAnAgentToStop) {
  const auto before = installedTree();
  ServiceSwitch helper;
  EXPECT_EQ(managedWith(helper), 5);
  EXPECT_EQ(installedTree(), before);
}

}  // namespace
