#include "services/alarmed_wait.h"

#include <algorithm>
#include <cerrno>

namespace kelt::platform {
namespace {

/// How late a system call can be interrupted that begins just after the time was over.
constexpr suseconds_t kRepeatMicroseconds = 10'000;
constexpr unsigned int kLongest = 365U * 24 * 60 * 60;  // fits a time of 32 bits, which is all that some kernels take
constexpr long kNanosecondsPerMicrosecond = 1000;
constexpr suseconds_t kMicrosecondsPerSecond = 1'000'000;

// What a signal handler and the code that it interrupts can share.
volatile sig_atomic_t g_armed = 0;
volatile sig_atomic_t g_over = 0;

void startTimer(time_t seconds, suseconds_t microseconds) {
  const itimerval timer{{0, kRepeatMicroseconds}, {seconds, microseconds}};
  ::setitimer(ITIMER_REAL, &timer, nullptr);
}

void onAlarm(int) {
  const int errnoBefore = errno;
  g_over = 1;
  // Whoever sent it: from now on every wait ends soon, even one that begins only after this.
  if (g_armed != 0) startTimer(0, kRepeatMicroseconds);
  errno = errnoBefore;
}

bool bRuns(const timeval& time) {
  return time.tv_sec != 0 || time.tv_usec != 0;
}

timespec now() {
  timespec time{};
  ::clock_gettime(CLOCK_MONOTONIC, &time);
  return time;
}

/// `time` less what has passed since `begin`, but never nothing.
timeval remaining(const timeval& time, const timespec& begin) {
  const timespec end = now();
  timeval left{};
  left.tv_sec = time.tv_sec - (end.tv_sec - begin.tv_sec);
  left.tv_usec = time.tv_usec - static_cast<suseconds_t>((end.tv_nsec - begin.tv_nsec) / kNanosecondsPerMicrosecond);
  if (left.tv_usec < 0) {
    --left.tv_sec;
    left.tv_usec += kMicrosecondsPerSecond;
  } else if (left.tv_usec >= kMicrosecondsPerSecond) {
    ++left.tv_sec;
    left.tv_usec -= kMicrosecondsPerSecond;
  }
  // A timer of 0 is switched off, and whoever had set it would wait in vain: one that is due goes off at once.
  return left.tv_sec < 0 || !bRuns(left) ? timeval{0, 1} : left;
}

}  // namespace

AlarmedWait::AlarmedWait(unsigned int seconds) : m_begin(now()) {
  const itimerval none{};
  // The process has one such timer. That of the caller stands still meanwhile, as its alarm would end our wait.
  ::setitimer(ITIMER_REAL, &none, &m_timerBefore);
  g_over = seconds == 0 ? 1 : 0;
  g_armed = 1;
  struct sigaction action {};
  // Before the timer runs: an alarm that nobody handles ends the process.
  action.sa_handler = onAlarm;  // and no SA_RESTART
  ::sigaction(SIGALRM, &action, &m_actionBefore);
  sigset_t alarmOnly;
  ::sigemptyset(&alarmOnly);
  ::sigaddset(&alarmOnly, SIGALRM);
  ::sigprocmask(SIG_UNBLOCK, &alarmOnly, &m_maskBefore);
  // To a timer, 0 means never.
  if (seconds != 0) startTimer(static_cast<time_t>(std::min(seconds, kLongest)), 0);
}

AlarmedWait::~AlarmedWait() {
  // Backwards, the timer before the handler: an alarm that comes last must not meet what the caller does on one.
  g_armed = 0;
  const itimerval none{};
  ::setitimer(ITIMER_REAL, &none, nullptr);
  ::sigprocmask(SIG_SETMASK, &m_maskBefore, nullptr);
  ::sigaction(SIGALRM, &m_actionBefore, nullptr);
  restoreTimer();
}

void AlarmedWait::restoreTimer() const {
  if (!bRuns(m_timerBefore.it_value)) return;
  const itimerval timer{m_timerBefore.it_interval, remaining(m_timerBefore.it_value, m_begin)};
  ::setitimer(ITIMER_REAL, &timer, nullptr);
}

bool AlarmedWait::bOver() const {
  return g_over != 0;
}

}  // namespace kelt::platform
