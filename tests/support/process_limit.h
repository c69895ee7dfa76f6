#pragma once
// A process for which the system has no further ones, for a while. For processes of their own: what this does to them
// stays.

#include <csignal>
#include <sys/resource.h>
#include <sys/time.h>
#include <unistd.h>

namespace kelt::tests {

/// Leaves this process without further ones, for as long as its soft limit stays. False where that cannot be done.
[[nodiscard]] inline bool bAlone() {
  // Root itself has no limit; in a namespace of its own user it has.
  static_cast<void>(::setresuid(65534, 65534, 65534));
  rlimit limit{};
  ::getrlimit(RLIMIT_NPROC, &limit);
  limit.rlim_cur = 0;
  return ::setrlimit(RLIMIT_NPROC, &limit) == 0 && ::fork() < 0;
}

/// Calls `onTimer` every few milliseconds, which also cuts a pause short.
inline void startTimer(void (*onTimer)(int)) {
  struct sigaction action {};
  action.sa_handler = onTimer;
  ::sigaction(SIGALRM, &action, nullptr);
  const itimerval often{{0, 5000}, {0, 5000}};
  ::setitimer(ITIMER_REAL, &often, nullptr);
}

/// For startTimer: lets the process have others again, the twentieth time that it is called.
inline void allowOthersAfterAWhile(int /*signal*/) {
  static volatile std::sig_atomic_t ticks = 0;
  ticks = ticks + 1;
  if (ticks < 20) return;
  rlimit limit{};
  ::getrlimit(RLIMIT_NPROC, &limit);
  limit.rlim_cur = limit.rlim_max;
  ::setrlimit(RLIMIT_NPROC, &limit);
}

}  // namespace kelt::tests
