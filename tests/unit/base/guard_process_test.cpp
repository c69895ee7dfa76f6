#include "base/guard_process.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/child.h"
#include "support/private_device.h"

#include "base/file_replace.h"
#include "base/signals.h"

namespace kelt::base {
namespace {

using tests::Child;

constexpr int kPatienceMilliseconds = 120'000;
constexpr const char* kActed = "/tmp/acted";

/// Whether every process that has the writing end of `reading`'s pipe has ended, waited for.
bool bAllEnded(int reading) {
  pollfd waited{reading, POLLIN, 0};
  return ::poll(&waited, 1, kPatienceMilliseconds) == 1 && (waited.revents & POLLHUP) != 0;
}

void act() {
  static_cast<void>(replaceFile(kActed, std::string_view("yes")));
}

class Guard : public tests::PrivateDevice {
 protected:
  void SetUp() override {
    PrivateDevice::SetUp();
    // What a guard leaves behind when it ends comes to this process, which can then wait for it.
    ASSERT_EQ(::prctl(PR_SET_CHILD_SUBREAPER, 1), 0);
  }
  void TearDown() override { ::prctl(PR_SET_CHILD_SUBREAPER, 0); }

  /// Runs `action` in a process that then dies by SIGKILL, and waits for whatever it left running.
  static void runAndKill(const std::function<void()>& action) {
    Child child([&] {
      ignoreOutputSignals();
      action();
      return ::raise(SIGKILL);
    });
    EXPECT_EQ(child.exitStatus(), -1);
    waitForOrphans();
  }

  /// Ends when nothing is left that this process would have to wait for.
  static void waitForOrphans() {
    while (::wait(nullptr) > 0) {
    }
  }
};

TEST_F(Guard, ActsWhenItsProcessIsKilled) {
  runAndKill([] {
    const auto guard = GuardProcess::start(act);
    ASSERT_TRUE(guard.ok());
    ::raise(SIGKILL);
  });
  EXPECT_EQ(tests::contentOf(kActed), "yes");
}

TEST_F(Guard, EndsWithoutActingOnceItIsDismissed) {
  runAndKill([] { const auto guard = GuardProcess::start(act); });
  EXPECT_FALSE(tests::exists(kActed));
}

TEST_F(Guard, IsDismissedByAnExceptionThatUnwindsItsOwner) {
  runAndKill([] {
    try {
      const auto guard = GuardProcess::start(act);
      throw std::runtime_error("unwound");
    } catch (const std::runtime_error&) {
    }
  });
  EXPECT_FALSE(tests::exists(kActed));
}

TEST_F(Guard, IsNoChildThatAWaitCouldMeet) {
  runAndKill([] {
    const auto guard = GuardProcess::start(act);
    ASSERT_EQ(::wait(nullptr), -1);
    ASSERT_EQ(errno, ECHILD);
    act();
  });
  EXPECT_TRUE(tests::exists(kActed)) << "the assertions in the child failed";
}

TEST_F(Guard, OutlivesTheSignalsThatEndItsProcessAndItsGroup) {
  runAndKill([] {
    ::setpgid(0, 0);
    const auto guard = GuardProcess::start(act);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
      ::signal(signal, SIG_IGN);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
      ::kill(0, signal);
    ::kill(0, SIGKILL);
  });
  EXPECT_EQ(tests::contentOf(kActed), "yes");
}

TEST_F(Guard, IgnoresSignalsThatReachItAlone) {
  runAndKill([] {
    const auto guard = GuardProcess::start([] {
      for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        ::raise(signal);
      act();
    });
    ::raise(SIGKILL);
  });
  EXPECT_EQ(tests::contentOf(kActed), "yes");
}

/// The descriptors of this process, with what each of the first four is, as "0:/dev/null 1:... ".
std::string descriptors() {
  namespace fs = std::filesystem;
  std::string found;
  for (int fd = 0; fd < 1000; ++fd) {
    std::error_code none;
    const std::string target = fs::read_symlink("/proc/self/fd/" + std::to_string(fd), none);
    if (!none) found += std::to_string(fd) + ":" + target + " ";
  }
  return found;
}

TEST_F(Guard, KeepsNoDescriptorOpenButNullDevicesAndItsPipe) {
  runAndKill([] {
    const int kept = ::open("/", O_RDONLY);  // not even one that is not close-on-exec
    const auto guard = GuardProcess::start([] { static_cast<void>(replaceFile(kActed, descriptors())); });
    ASSERT_GT(kept, 2);
    ::raise(SIGKILL);
  });
  // The pipe has done its part by then.
  EXPECT_EQ(tests::contentOf(kActed), "0:/dev/null 1:/dev/null 2:/dev/null ");
}

TEST_F(Guard, LetsNobodyWaitForTheOutputOfItsProcess) {
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  Child child([&] {
    ignoreOutputSignals();
    const auto guard = GuardProcess::start(act);
    ::close(ends[1]);
    static_cast<void>(::pause());
    return 0;
  });
  ::close(ends[1]);
  EXPECT_TRUE(bAllEnded(ends[0])) << "the guard keeps the pipe open";
  ::close(ends[0]);
  ::kill(child.pid(), SIGKILL);
  child.wait();
  waitForOrphans();
  EXPECT_TRUE(tests::exists(kActed));
}

TEST_F(Guard, EndsWhateverIsThrownInWhatItDoes) {
  runAndKill([] {
    const auto guard = GuardProcess::start([] {
      act();
      throw std::runtime_error("lost");
    });
    ::raise(SIGKILL);
  });
  EXPECT_EQ(tests::contentOf(kActed), "yes");
}

TEST_F(Guard, SaysWhereTheSystemRefusesADescriptor) {
  Child child([] {
    rlimit usual{};
    if (::getrlimit(RLIMIT_NOFILE, &usual) != 0) return 90;
    const rlimit none{0, usual.rlim_max};
    if (::setrlimit(RLIMIT_NOFILE, &none) != 0) return 90;
    const auto guard = GuardProcess::start(act);
    if (::setrlimit(RLIMIT_NOFILE, &usual) != 0) return 90;  // a sanitizer reads files at the end
    return guard.ok() ? 91 : guard.error().sysErrno;
  });
  EXPECT_EQ(child.exitStatus(), EMFILE);
  waitForOrphans();
  EXPECT_FALSE(tests::exists(kActed));
}

/// Makes a guard where this process, of an own user where the system allows that, may have `most` processes in all.
/// Returns the error of the attempt, 0 where the guard was made.
int guardAmong(rlim_t most, const rlimit& usual) {
  const rlimit few{most, usual.rlim_max};
  if (::setrlimit(RLIMIT_NPROC, &few) != 0) return -1;
  const auto guard = GuardProcess::start(act);
  const int error = guard.ok() ? 0 : guard.error().sysErrno;
  return ::setrlimit(RLIMIT_NPROC, &usual) == 0 ? error : -1;  // a sanitizer starts a process at the end
}

TEST_F(Guard, SaysWhereTheSystemRefusesEitherOfItsProcesses) {
  Child child([] {
    ignoreOutputSignals();
    rlimit usual{};
    if (::getrlimit(RLIMIT_NPROC, &usual) != 0) return 90;
    // The limit does not hold for root. A number that nobody else has; an ordinary user who is root here only has the
    // limit anyway, and has processes besides.
    static_cast<void>(::setuid(static_cast<uid_t>(0x60000000 + ::getpid())));
    int refusals = 0;
    constexpr rlim_t kMost = 100'000;
    for (rlim_t most = 1; most < kMost; ++most) {
      const int error = guardAmong(most, usual);
      if (error == 0) return refusals;
      if (error != EAGAIN) return 91;
      refusals = std::min(refusals + 1, 2);  // that of the first process, then that of the second
    }
    return 92;
  });
  EXPECT_EQ(child.exitStatus(), 2);
  waitForOrphans();
  EXPECT_FALSE(tests::exists(kActed));
}

}  // namespace
}  // namespace kelt::base
