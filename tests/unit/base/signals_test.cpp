#include "base/signals.h"

#include <functional>
#include <sys/resource.h>
#include <unistd.h>

#include "support/child.h"
#include "support/private_device.h"

namespace kelt::base {
namespace {

/// How a child that runs `action` and then ends with status 7 came to its end.
int statusOf(const std::function<void()>& action) {
  return tests::Child([&] {
           action();
           return 7;
         })
      .wait();
}

bool bEnded(int status) {
  return WIFEXITED(status) && WEXITSTATUS(status) == 7;
}
bool bKilledBy(int status, int signal) {
  return WIFSIGNALED(status) && WTERMSIG(status) == signal;
}

bool bBlocked(int signal) {
  sigset_t mask;
  ::sigprocmask(SIG_SETMASK, nullptr, &mask);
  return ::sigismember(&mask, signal) == 1;
}

TEST(IgnoreOutputSignals, LetsAClosedPipeAndASizeLimitPass) {
  EXPECT_TRUE(bEnded(statusOf([] {
    ignoreOutputSignals();
    ::raise(SIGPIPE);
    ::raise(SIGXFSZ);
  })));
}

TEST(ResetSignals, GivesAChildTheDefaultActionOfWhatIsIgnored) {
  for (const int signal : {SIGPIPE, SIGXFSZ, SIGINT, SIGQUIT, SIGTERM}) {
    const int status = statusOf([signal] {
      const rlimit noCore{0, 0};
      ::setrlimit(RLIMIT_CORE, &noCore);
      ::signal(signal, SIG_IGN);
      resetSignalsForChild();
      ::raise(signal);
    });
    EXPECT_TRUE(bKilledBy(status, signal)) << signal;
  }
}

TEST(ResetSignals, GivesAChildTheDefaultActionOfEverySignal) {
  EXPECT_TRUE(bEnded(statusOf([] {
    for (int signal = 1; signal < NSIG; ++signal)
      ::signal(signal, SIG_IGN);
    resetSignalsForChild();
    for (int signal = 1; signal < NSIG; ++signal) {
      struct sigaction action {};
      const bool bDefault = ::sigaction(signal, nullptr, &action) != 0 || action.sa_handler == SIG_DFL;
      if (!bDefault) ::_exit(signal);
    }
  })));
}

TEST(ResetSignals, EmptiesTheMask) {
  EXPECT_TRUE(bEnded(statusOf([] {
    sigset_t all;
    ::sigfillset(&all);
    ::sigprocmask(SIG_SETMASK, &all, nullptr);
    resetSignalsForChild();
    for (int signal = 1; signal < NSIG; ++signal) {
      if (bBlocked(signal)) ::_exit(signal);
    }
  })));
}

TEST(DeferredSignals, WaitUntilTheWorkIsDoneAndThenEndTheRun) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    const int afterwards = statusOf([signal] {
      const DeferredSignals work;
      ::raise(signal);
    });
    EXPECT_TRUE(bKilledBy(afterwards, signal)) << signal;
    EXPECT_TRUE(bEnded(statusOf([signal] {
      const DeferredSignals work;
      ::raise(signal);
      ::_exit(7);
    })));
  }
}

TEST(DeferredSignals, GiveBackTheEarlierMask) {
  ASSERT_FALSE(bBlocked(SIGINT));
  sigset_t usr1;
  ::sigemptyset(&usr1);
  ::sigaddset(&usr1, SIGUSR1);
  ::sigprocmask(SIG_BLOCK, &usr1, nullptr);
  {
    const DeferredSignals work;
    EXPECT_TRUE(bBlocked(SIGINT));
    EXPECT_TRUE(bBlocked(SIGUSR1));
    EXPECT_FALSE(bBlocked(SIGQUIT));
  }
  EXPECT_FALSE(bBlocked(SIGINT));
  EXPECT_TRUE(bBlocked(SIGUSR1));
  ::sigprocmask(SIG_UNBLOCK, &usr1, nullptr);
}

TEST(DeferredSignals, LastUntilTheOutermostWorkIsDone) {
  {
    const DeferredSignals outer;
    { const DeferredSignals inner; }
    EXPECT_TRUE(bBlocked(SIGINT));
  }
  EXPECT_FALSE(bBlocked(SIGINT));
}

}  // namespace
}  // namespace kelt::base
