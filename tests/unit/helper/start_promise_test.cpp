// The promise on real processes; what whole runs make of it is tested end to end (tests/e2e/test_guard.py).

#include "helper/start_promise.h"

#include <csignal>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include "support/child.h"
#include "support/log.h"
#include "support/private_device.h"

#include "base/signals.h"
#include "helper/owed_start.h"
#include "helper/unix_command_line_helper.h"

namespace kelt::helper {
namespace {

using tests::Child;
using tests::exists;
using tests::putDirectory;
using tests::putFile;

class StartPromised : public tests::PrivateDevice {
 protected:
  void SetUp() override {
    PrivateDevice::SetUp();
    putDirectory("/run/orv-locks", 0700);
    putDirectory("/opt/Quorvane/orv/scratch");
    putFile("/etc/orv.d/ZENTORAGENT/config.xml",
            "<Configuration><StartCommand>touch /tmp/started</StartCommand>"
            "<StopCommand>touch /tmp/stopped</StopCommand></Configuration>");
    // A guard that is left comes to this process, which can then wait for it.
    ASSERT_EQ(::prctl(PR_SET_CHILD_SUBREAPER, 1), 0);
  }
  void TearDown() override { ::prctl(PR_SET_CHILD_SUBREAPER, 0); }

  /// Runs `action` in a process of its own, and waits for it and for whatever it left running.
  static int statusOf(const std::function<int(unixCommandLineHelper&)>& action) {
    Child child([&] {
      base::ignoreOutputSignals();
      unixCommandLineHelper agent;
      return action(agent);
    });
    const int status = child.exitStatus();
    while (::wait(nullptr) > 0) {
    }
    return status;
  }
};

TEST_F(StartPromised, IsKeptForAProcessThatDiesWhileTheAgentIsStopped) {
  statusOf([](unixCommandLineHelper& agent) {
    const auto promise = agent.promiseStart();
    return agent.StopORVService() ? ::raise(SIGKILL) : 1;
  });
  EXPECT_TRUE(exists("/tmp/stopped"));
  EXPECT_TRUE(exists("/tmp/started"));
  EXPECT_FALSE(bOwed(Owed::kStart));
  EXPECT_EQ(tests::errorsLogged(),
            std::vector<std::string>{"A run ended before it started the agent again, which is started now."});
}

TEST_F(StartPromised, IsKeptByWhatWasReadBeforeTheStopWhereNothingCanBeReadAnyMore) {
  statusOf([](unixCommandLineHelper& agent) {
    agent.reserveStart();
    const auto promise = agent.promiseStart();
    if (!agent.StopORVService()) return 1;
    const char* config = "/etc/orv.d/ZENTORAGENT/config.xml";
    ::unlink(config);
    return ::symlink("/proc/self/mem", config) == 0 ? ::raise(SIGKILL) : 1;
  });
  EXPECT_TRUE(exists("/tmp/started"));
  EXPECT_FALSE(bOwed(Owed::kStart));
}

TEST_F(StartPromised, IsPaidByTheStartItself) {
  EXPECT_EQ(statusOf([](unixCommandLineHelper& agent) {
              const auto promise = agent.promiseStart();
              if (!agent.StopORVService() || !bOwed(Owed::kStart)) return 1;
              return agent.StartORVService() && !bOwed(Owed::kStart) ? 0 : 2;
            }),
            0);
  EXPECT_EQ(tests::errorsLogged(), std::vector<std::string>());
}

TEST_F(StartPromised, GoesOverToTheGuardWhereTheAgentIsStillOwedItsStart) {
  EXPECT_EQ(statusOf([](unixCommandLineHelper& agent) {
              const auto promise = agent.promiseStart();
              return agent.StopORVService() ? 0 : 1;
            }),
            0);
  EXPECT_TRUE(exists("/tmp/started"));
  EXPECT_FALSE(bOwed(Owed::kStart));
}

TEST_F(StartPromised, IsNoneOfAStopWithoutIt) {
  EXPECT_EQ(statusOf([](unixCommandLineHelper& agent) { return agent.StopORVService() ? 0 : 1; }), 0);
  EXPECT_FALSE(exists("/tmp/started"));
  EXPECT_FALSE(bOwed(Owed::kStart));
}

TEST_F(StartPromised, IsOverOnceItWasKept) {
  EXPECT_EQ(statusOf([](unixCommandLineHelper& agent) {
              auto promise = agent.promiseStart();
              if (!agent.StopORVService() || !agent.StartORVService()) return 1;
              promise.reset();
              return agent.StopORVService() && !bOwed(Owed::kStart) ? 0 : 2;
            }),
            0);
}

TEST_F(StartPromised, IsGivenWithoutAGuardWhereTheSystemRefusesOne) {
  statusOf([](unixCommandLineHelper& agent) {
    rlimit usual{};
    ::getrlimit(RLIMIT_NOFILE, &usual);
    const rlimit none{0, usual.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &none);
    const auto promise = agent.promiseStart();
    ::setrlimit(RLIMIT_NOFILE, &usual);
    return promise != nullptr && agent.StopORVService() ? ::raise(SIGKILL) : 1;
  });
  EXPECT_TRUE(exists("/tmp/stopped")) << "the run went on";
  EXPECT_FALSE(exists("/tmp/started"));
  EXPECT_TRUE(bOwed(Owed::kStart)) << "whoever starts the agent next finds the mark";
}

}  // namespace
}  // namespace kelt::helper
