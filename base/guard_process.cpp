#include "base/guard_process.h"

#include <array>
#include <climits>
#include <fcntl.h>
#include <initializer_list>
#include <sys/syscall.h>  // IWYU pragma: keep
#include <sys/wait.h>

#include "base/retry.h"
#include "base/signals.h"

namespace kelt::base {
namespace {

/// Where the guard keeps the reading end of the pipe: the first place after the standard descriptors.
constexpr int kPipe = 3;

void closeFrom(unsigned int first) {
  if (::syscall(SYS_close_range, first, UINT_MAX, 0U) == 0) return;
  // Kernels before 5.9.
  const long most = ::sysconf(_SC_OPEN_MAX);
  for (int fd = static_cast<int>(first); fd < most; ++fd)
    ::close(fd);
}

/// Leaves the guard no descriptor but the pipe and /dev/null.
void takeDescriptors(int pipe) {
  if (pipe != kPipe) ::dup2(pipe, kPipe);
  // With all others goes its copy of the writing end: as long as that is open, the pipe does not end.
  closeFrom(kPipe + 1);
  for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
    ::close(fd);
  for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    // The lowest that is free, which is this one. Without it the guard works as well, as it says nothing there.
    if (::open("/dev/null", O_RDWR) != fd) break;
  }
}

/// Waits until the other end of the pipe says farewell or is closed. Returns whether it said nothing.
bool awaitDeath() {
  char farewell = 0;
  return retryInterrupted([&] { return ::read(kPipe, &farewell, 1); }) == 0;
}

[[noreturn]] void watch(const std::function<void()>& action) {
  try {
    if (awaitDeath()) {
      ::close(kPipe);
      action();
    }
  } catch (...) {
    ::_exit(1);
  }
  ::_exit(0);
}

/// In the child: makes the guard and ends, so that the guard is nobody's child. All that sets the guard apart is done
/// before, so that it holds as soon as this child has ended.
[[noreturn]] void makeGuard(int pipe, const std::function<void()>& action) {
  ::setsid();
  ignoreEndingSignals();
  takeDescriptors(pipe);
  const pid_t guard = ::fork();
  if (guard == 0) watch(action);
  ::_exit(guard < 0 ? 1 : 0);
}

}  // namespace

Result<GuardProcess> GuardProcess::start(const std::function<void()>& action) {
  std::array<int, 2> ends{-1, -1};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) return systemError("make the pipe of a guard");
  const UniqueFd reading(ends[0]);
  UniqueFd writing(ends[1]);
  const pid_t child = ::fork();
  if (child < 0) return systemError("start a guard");
  if (child == 0) makeGuard(reading.get(), action);
  int status = -1;
  // For the child in between, which ends at once; the guard is nobody's child by then.
  retryInterrupted([&] { return ::waitpid(child, &status, 0); });
  if (status != 0) return systemError("start a guard", EAGAIN);
  return GuardProcess(std::move(writing));
}

GuardProcess::~GuardProcess() {
  if (!m_farewell) return;
  constexpr char kFarewell = '.';
  // A guard that is no more has nothing to be told (SIGPIPE is ignored by the tool).
  static_cast<void>(retryInterrupted([&] { return ::write(m_farewell.get(), &kFarewell, 1); }));
}

}  // namespace kelt::base
