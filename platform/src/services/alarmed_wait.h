#pragma once
// A deadline for fcntl(F_OFD_SETLKW), which has none of its own.

#include <signal.h>
#include <sys/time.h>
#include <time.h>  // IWYU pragma: keep

namespace kelt::platform {

/// A time limit for system calls that have none: while it lives, SIGALRM interrupts them once the time is over, or
/// whenever somebody sends it, and then every few milliseconds, so that one that comes just before such a call is not
/// lost. At the end the earlier disposition, mask and timer (less the time that has passed) are back.
/// At most one at a time, in a process of one thread.
class AlarmedWait {
 public:
  /// Starts the time. 0 is over at once.
  explicit AlarmedWait(unsigned int seconds);
  AlarmedWait(const AlarmedWait&) = delete;
  AlarmedWait& operator=(const AlarmedWait&) = delete;
  ~AlarmedWait();

  /// Whether the time is over, or somebody sent SIGALRM. It stays so.
  [[nodiscard]] bool bOver() const;

 private:
  /// Starts the earlier timer again, if there was one, with what is left of its time.
  void restoreTimer() const;

  struct sigaction m_actionBefore {};
  sigset_t m_maskBefore{};
  itimerval m_timerBefore{};
  timespec m_begin{};
};

}  // namespace kelt::platform
