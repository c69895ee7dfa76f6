#include "base/running_process.h"

#include <csignal>
#include <cstring>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/child.h"

namespace kelt::base {
namespace {

constexpr int kLongAgo = 100;  // hundredths of a second

TEST(RunningProcess, IsThisOne) {
  EXPECT_TRUE(bRuns(thisProcess()));
}

TEST(RunningProcess, IsNotAnotherOneThatGotTheNumberLater) {
  SeenProcess earlier = thisProcess();
  earlier.seenAt = kLongAgo;
  EXPECT_FALSE(bRuns(earlier));
}

TEST(RunningProcess, IsNotOneThatEndedWhetherItWasWaitedForOrNot) {
  tests::Child child([] { return ::pause(); });
  const SeenProcess seen{child.pid(), thisProcess().seenAt + kLongAgo};
  EXPECT_TRUE(bRuns(seen));
  ::kill(child.pid(), SIGKILL);
  siginfo_t info{};
  ASSERT_EQ(::waitid(P_PID, static_cast<id_t>(child.pid()), &info, WEXITED | WNOWAIT), 0);
  EXPECT_FALSE(bRuns(seen)) << "nobody waited for it yet";
  child.wait();
  EXPECT_FALSE(bRuns(seen));
}

TEST(RunningProcess, MayHaveAnyName) {
  tests::expectInOwnProcess([] {
    for (const char* name : {"", ")", "x) Z 1 1 1", "a b (c"}) {
      ::prctl(PR_SET_NAME, name);
      EXPECT_TRUE(bRuns(thisProcess())) << name;
    }
  });
}

TEST(RunningProcess, IsNoneOfANumberThatNoProcessHas) {
  EXPECT_FALSE(bRuns({0, thisProcess().seenAt}));
  EXPECT_FALSE(bRuns({-1, thisProcess().seenAt}));
}

}  // namespace
}  // namespace kelt::base
