// What running a command does to its process is tested in command_execution_test.cpp.

#include "helper/prepared_command.h"

#include <csignal>
#include <cstdint>
#include <sys/resource.h>
#include <sys/time.h>
#include <unistd.h>

#include "limited_memory.h"
#include "support/agent_on_device.h"
#include "support/log.h"
#include "support/private_device.h"

namespace kelt::helper {
namespace {

using Lines = std::vector<std::string>;

class Prepared : public tests::PrivateDevice {
 protected:
  void SetUp() override {
    PrivateDevice::SetUp();
    tests::putDirectory("/opt/Quorvane/orv/scratch/logs");
    for (const char* directory : {"/tmp", "/opt/Quorvane/orv/scratch/logs"})
      ASSERT_EQ(::chmod(directory, 0777), 0);
    m_command = tests::putCommand("command");
  }

  /// Calls `onTimer` every few milliseconds, which also cuts a pause short.
  static void startTimer(void (*onTimer)(int)) {
    struct sigaction action {};
    action.sa_handler = onTimer;
    ::sigaction(SIGALRM, &action, nullptr);
    const itimerval often{{0, 5000}, {0, 5000}};
    ::setitimer(ITIMER_REAL, &often, nullptr);
  }

  /// Leaves this process without further ones, for as long as its soft limit stays.
  static bool bAlone() {
    // Root itself has no limit; in a namespace of its own user it has.
    static_cast<void>(::setresuid(65534, 65534, 65534));
    rlimit limit{};
    ::getrlimit(RLIMIT_NPROC, &limit);
    limit.rlim_cur = 0;
    return ::setrlimit(RLIMIT_NPROC, &limit) == 0 && ::fork() < 0;
  }

  std::string m_command;
};

TEST_F(Prepared, RunsWithoutMemory) {
  const PreparedCommand command({m_command, "one", "two words that are longer than what fits into a string object"});
  tests::limitBlocks(0);
  command.run(nullptr);
  command.runPatiently(nullptr);
  tests::limitBlocks(SIZE_MAX);
  EXPECT_EQ(tests::calls(), Lines(2, "command one two words that are longer than what fits into a string object"));
}

TEST_F(Prepared, RunsAfterItWasMoved) {
  PreparedCommand command({m_command, "one"});
  const PreparedCommand moved(std::move(command));
  moved.run(nullptr);
  EXPECT_EQ(tests::calls(), Lines{"command one"});
}

TEST_F(Prepared, AsksAgainForAProcessThatTheSystemDoesNotHaveAndSaysSo) {
  const int status = tests::statusOfProcess([&] {
    const PreparedCommand command({m_command});
    if (!bAlone()) return false;
    startTimer([](int) {
      static int ticks = 0;
      if (++ticks < 20) return;
      rlimit limit{};
      ::getrlimit(RLIMIT_NPROC, &limit);
      limit.rlim_cur = limit.rlim_max;
      ::setrlimit(RLIMIT_NPROC, &limit);
    });
    command.runPatiently(nullptr);
    return true;
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(tests::calls(), Lines{"command"});
  EXPECT_EQ(tests::errorsLogged(), Lines{"The system has no process for a command of the agent; trying again."});
}

TEST_F(Prepared, GivesUpInTheEndAndSaysSo) {
  const int status = tests::statusOfProcess([&] {
    const PreparedCommand command({m_command});
    if (!bAlone()) return false;
    startTimer([](int) {});
    command.runPatiently(nullptr);
    return true;
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(tests::calls(), Lines{});
  EXPECT_EQ(tests::errorsLogged(), (Lines{"The system has no process for a command of the agent; trying again.",
                                          "The system had no process for a command of the agent: it was not run."}));
}

}  // namespace
}  // namespace kelt::helper
