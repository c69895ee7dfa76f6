// What is left of the caller's own timer after a wait, to the microsecond: wherever in its second the clock stood.

#include <cstdint>
#include <gtest/gtest.h>
#include <sys/time.h>
#include <time.h>

#include "services/alarmed_wait.h"

namespace kelt::platform {
namespace {

constexpr std::int64_t kSecond = 1'000'000;

std::int64_t microsecondsNow() {
  timespec time{};
  ::clock_gettime(CLOCK_MONOTONIC, &time);
  return time.tv_sec * kSecond + time.tv_nsec / 1000;
}

/// Sleeps until the clock shows this part of a second.
void sleepUntilPart(std::int64_t microseconds) {
  const std::int64_t now = microsecondsNow();
  const std::int64_t begun = now - now % kSecond + microseconds;
  const std::int64_t at = begun > now ? begun : begun + kSecond;
  const timespec time{static_cast<time_t>(at / kSecond), static_cast<long>(at % kSecond * 1000)};
  while (::clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &time, nullptr) != 0) {
  }
}

/// Sets a timer of `before`, waits from one part of a second to another, and looks what is left: however long that
/// took, it is as much less as the clock went on. Returns how long the wait was.
std::int64_t tryTimeLeft(const timeval& before, std::int64_t fromPart, std::int64_t toPart) {
  sleepUntilPart(fromPart);
  const itimerval mine{{0, 0}, before};
  const std::int64_t begin = microsecondsNow();
  EXPECT_EQ(::setitimer(ITIMER_REAL, &mine, nullptr), 0);
  std::int64_t waited = 0;
  {
    const AlarmedWait wait(300);
    const std::int64_t waiting = microsecondsNow();
    sleepUntilPart(toPart);
    waited = microsecondsNow() - waiting;
  }
  itimerval left{};
  const itimerval none{};
  EXPECT_EQ(::setitimer(ITIMER_REAL, &none, &left), 0);
  const std::int64_t passed = microsecondsNow() - begin;
  const std::int64_t given = before.tv_sec * kSecond + before.tv_usec;
  const std::int64_t found = left.it_value.tv_sec * kSecond + left.it_value.tv_usec;
  EXPECT_GE(found, given - passed - 1);
  EXPECT_LE(found, given - waited + 1000) << "but for how the system rounds";
  return waited;
}

/// The same, until the wait goes from the one part to the other indeed: a busy machine wakes up late.
void expectTimeLeft(const timeval& before, std::int64_t fromPart, std::int64_t toPart) {
  constexpr std::int64_t kMuch = 50'000;
  int tries = 1;
  while (tryTimeLeft(before, fromPart, toPart) < kMuch && tries < 100)
    ++tries;
  EXPECT_LT(tries, 100);
}

TEST(AlarmedWaitTimer, IsLessWithinOneSecondOfTheClock) {
  expectTimeLeft({100, 50'000}, 100'000, 210'000);
  expectTimeLeft({100, 999'999}, 100'000, 210'000);
}

TEST(AlarmedWaitTimer, IsLessAcrossTwoSecondsOfTheClock) {
  expectTimeLeft({100, 50'000}, 900'000, 10'000);
  expectTimeLeft({100, 999'999}, 900'000, 10'000);
}

}  // namespace
}  // namespace kelt::platform
