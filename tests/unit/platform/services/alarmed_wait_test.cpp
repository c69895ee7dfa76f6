#include "services/alarmed_wait.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <thread>
#include <unistd.h>

#include "support/waiting.h"

#include "base/unique_fd.h"

namespace kelt::platform {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

void ignoreIt(int) {}

/// Blocks until a signal interrupts it; the errno of that.
int block() {
  std::array<int, 2> ends{};
  EXPECT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
  const base::UniqueFd reader(ends[0]);
  const base::UniqueFd writer(ends[1]);
  char byte = 0;
  return ::read(reader.get(), &byte, 1) < 0 ? errno : 0;
}

milliseconds since(Clock::time_point begin) {
  return std::chrono::duration_cast<milliseconds>(Clock::now() - begin);
}

TEST(AlarmedWait, IsOverAtOnceWithoutAnyTime) {
  EXPECT_TRUE(AlarmedWait(0).bOver());
}

TEST(AlarmedWait, InterruptsABlockedCallWhenTheTimeIsOver) {
  const auto begin = Clock::now();
  const AlarmedWait wait(1);
  EXPECT_FALSE(wait.bOver());
  EXPECT_EQ(block(), EINTR);
  EXPECT_TRUE(wait.bOver());
  EXPECT_GE(since(begin), milliseconds(950));
  EXPECT_LE(since(begin), tests::kPatience);
}

TEST(AlarmedWait, InterruptsWhateverBlocksAfterTheTime) {
  const auto begin = Clock::now();
  const AlarmedWait wait(300);
  ::raise(SIGALRM);  // comes before the call that it is meant for
  EXPECT_TRUE(wait.bOver());
  EXPECT_EQ(block(), EINTR);
  EXPECT_EQ(block(), EINTR);
  EXPECT_LT(since(begin), milliseconds(300'000));
}

TEST(AlarmedWait, IsNotOverForAnotherSignal) {
  struct sigaction before {};
  struct sigaction interrupting {};
  interrupting.sa_handler = ignoreIt;
  ASSERT_EQ(::sigaction(SIGUSR1, &interrupting, &before), 0);
  const AlarmedWait wait(300);
  ::raise(SIGUSR1);
  EXPECT_FALSE(wait.bOver());
  ::sigaction(SIGUSR1, &before, nullptr);
}

TEST(AlarmedWait, TakesTheLongestTimeThereIs) {
  EXPECT_FALSE(AlarmedWait(~0U).bOver());
}

TEST(AlarmedWait, GivesBackDispositionAndMask) {
  struct sigaction mine {};
  mine.sa_handler = ignoreIt;
  mine.sa_flags = SA_RESTART;
  struct sigaction before {};
  ASSERT_EQ(::sigaction(SIGALRM, &mine, &before), 0);
  sigset_t alarmOnly;
  ::sigemptyset(&alarmOnly);
  ::sigaddset(&alarmOnly, SIGALRM);
  ASSERT_EQ(::sigprocmask(SIG_BLOCK, &alarmOnly, nullptr), 0);
  {
    const AlarmedWait wait(300);
    ::raise(SIGALRM);
    EXPECT_TRUE(wait.bOver()) << "a signal that the caller blocks ends the wait";
  }
  sigset_t mask;
  struct sigaction after {};
  ASSERT_EQ(::sigprocmask(SIG_SETMASK, nullptr, &mask), 0);
  ASSERT_EQ(::sigaction(SIGALRM, nullptr, &after), 0);
  EXPECT_EQ(::sigismember(&mask, SIGALRM), 1);
  EXPECT_EQ(after.sa_handler, &ignoreIt);
  EXPECT_NE(after.sa_flags & SA_RESTART, 0);
  sigset_t pending;
  ASSERT_EQ(::sigpending(&pending), 0);
  EXPECT_EQ(::sigismember(&pending, SIGALRM), 0) << "nothing of the wait is left";
  ::sigaction(SIGALRM, &before, nullptr);
  ::sigprocmask(SIG_UNBLOCK, &alarmOnly, nullptr);
}

TEST(AlarmedWait, LeavesNoTimerBehind) {
  {
    const AlarmedWait wait(300);
    ::raise(SIGALRM);  // which starts one that ticks
  }
  itimerval timer{};
  ASSERT_EQ(::getitimer(ITIMER_REAL, &timer), 0);
  EXPECT_EQ(timer.it_value.tv_sec, 0);
  EXPECT_EQ(timer.it_value.tv_usec, 0);
}

TEST(AlarmedWait, GivesBackATimerLessTheTimeThatHasPassed) {
  constexpr double kTime = 1000;
  const itimerval mine{{7, 0}, {static_cast<time_t>(kTime), 0}};
  const auto begin = Clock::now();
  ASSERT_EQ(::setitimer(ITIMER_REAL, &mine, nullptr), 0);
  {
    const AlarmedWait wait(300);
    std::this_thread::sleep_for(milliseconds(300));  // at least
  }
  itimerval timer{};
  const itimerval none{};
  ASSERT_EQ(::setitimer(ITIMER_REAL, &none, &timer), 0);
  EXPECT_EQ(timer.it_interval.tv_sec, 7);
  const double left = static_cast<double>(timer.it_value.tv_sec) + static_cast<double>(timer.it_value.tv_usec) / 1e6;
  constexpr double kTick = 0.02;  // of the system's timers
  EXPECT_LE(left, kTime - 0.3 + kTick);
  EXPECT_GE(left, kTime - std::chrono::duration<double>(Clock::now() - begin).count() - kTick);
}

volatile sig_atomic_t g_rang = 0;

TEST(AlarmedWait, LetsATimerThatRanOutMeanwhileRingAtTheEnd) {
  struct sigaction mine {};
  mine.sa_handler = [](int) { g_rang = 1; };
  struct sigaction before {};
  ASSERT_EQ(::sigaction(SIGALRM, &mine, &before), 0);
  // It must not run out before the wait begins, however long that takes here.
  for (milliseconds time(20); time < tests::kPatience; time *= 2) {
    g_rang = 0;
    const itimerval soon{{0, 0}, {time.count() / 1000, static_cast<suseconds_t>(time.count() % 1000 * 1000)}};
    ASSERT_EQ(::setitimer(ITIMER_REAL, &soon, nullptr), 0);
    const AlarmedWait wait(~0U);
    if (g_rang != 0) continue;
    std::this_thread::sleep_for(2 * time);
    EXPECT_FALSE(wait.bOver());
    EXPECT_EQ(g_rang, 0);
    break;
  }
  EXPECT_TRUE(tests::bComesTrue([] { return g_rang != 0; }));
  ::sigaction(SIGALRM, &before, nullptr);
}

}  // namespace
}  // namespace kelt::platform
