// Signals that end a run, at every stage of a switch. Each switch runs in a process of its own.

#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

#include "fake_server.h"
#include "installation.h"
#include "switch_under_test.h"

using kelt::tests::exists;
using kelt::tests::fakeServer;
using kelt::tests::kInstalledSiteList;
using kelt::tests::SwitchUnderTest;

namespace {

class ModeSwitchSignals : public kelt::tests::Installation {
 protected:
  void SetUp() override {
    Installation::SetUp();
    fakeServer() = {};
    kelt::tests::putSource("/tmp/k");
  }

  /// Runs a managed switch; starting the agent leaves a file. The wait status.
  static int statusOfSwitch(SwitchUnderTest& helper, bool bProvision = false, bool noStart = false) {
    helper.m_onStart = [] {
      kelt::tests::putFile("/tmp/started", "");
      return true;
    };
    return kelt::tests::statusOfProcess([&] {
      return helper.PrepareORV(true, noStart, L"/tmp/k", L"/tmp", false, L"", false, bProvision, L"", L"", L"") == 0;
    });
  }

  static void expectDiedOf(int signal, int status) {
    EXPECT_TRUE(WIFSIGNALED(status)) << status;
    EXPECT_EQ(WTERMSIG(status), signal);
  }
};

TEST_F(ModeSwitchSignals, WaitUntilTheAgentIsStartedAgain) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    for (std::function<bool()> SwitchUnderTest::*stage : {&SwitchUnderTest::m_onStop, &SwitchUnderTest::m_onImport}) {
      SetUp();
      SwitchUnderTest helper;
      helper.*stage = [signal] { return ::raise(signal) == 0; };
      expectDiedOf(signal, statusOfSwitch(helper));
      EXPECT_TRUE(exists(kInstalledSiteList)) << "the switch is complete";
      EXPECT_TRUE(exists("/tmp/started"));
    }
  }
}

TEST_F(ModeSwitchSignals, WaitForAFailedSwitchToo) {
  SwitchUnderTest helper;
  helper.m_onImport = [] { return ::raise(SIGTERM) != 0; };
  expectDiedOf(SIGTERM, statusOfSwitch(helper));
  EXPECT_TRUE(exists("/tmp/started"));
}

TEST_F(ModeSwitchSignals, WaitForTheEndOfASwitchWithoutAStart) {
  SwitchUnderTest helper;
  helper.m_onStop = [] { return ::raise(SIGINT) == 0; };
  expectDiedOf(SIGINT, statusOfSwitch(helper, false, true));
  EXPECT_TRUE(exists(kInstalledSiteList));
  EXPECT_FALSE(exists("/tmp/started"));
}

TEST_F(ModeSwitchSignals, EndTheRunWhenTheAgentCannotBeStopped) {
  SwitchUnderTest helper;
  helper.m_onStop = [] { return ::raise(SIGTERM) != 0; };
  expectDiedOf(SIGTERM, statusOfSwitch(helper));
  EXPECT_FALSE(exists(kInstalledSiteList));
  EXPECT_FALSE(exists("/tmp/started"));
}

TEST_F(ModeSwitchSignals, EndTheRunAtOnceBeforeTheAgentIsTouched) {
  fakeServer().deliver = [] { static_cast<void>(::raise(SIGINT)); };
  SwitchUnderTest helper;
  helper.m_onStop = [] {
    kelt::tests::putFile("/tmp/stopped", "");
    return true;
  };
  expectDiedOf(SIGINT, statusOfSwitch(helper, true));
  EXPECT_FALSE(exists("/tmp/stopped"));
}

TEST_F(ModeSwitchSignals, OtherSignalsAreNotHeldBack) {
  SwitchUnderTest helper;
  helper.m_onImport = [] { return ::raise(SIGKILL) == 0; };
  expectDiedOf(SIGKILL, statusOfSwitch(helper));
  EXPECT_FALSE(exists("/tmp/started"));
}

TEST_F(ModeSwitchSignals, LeaveTheMaskAsItWas) {
  SwitchUnderTest helper;
  const int status = kelt::tests::statusOfProcess([&] {
    helper.PrepareORV(true, false, L"/tmp/k", L"/tmp", false, L"", false, false, L"", L"", L"");
    sigset_t mask;
    ::sigprocmask(SIG_SETMASK, nullptr, &mask);
    return ::sigismember(&mask, SIGTERM) == 0 && ::sigismember(&mask, SIGINT) == 0;
  });
  EXPECT_EQ(status, 0);
}

}  // namespace
