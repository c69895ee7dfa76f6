#include "platform/interprocess_write_lock.h"

#include <array>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include "support/child.h"
#include "support/private_device.h"
#include "support/waiting.h"

namespace kelt::tests {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr const char* kName = "test-lock";
constexpr unsigned int kLong = 300;  // seconds
constexpr const char* kPath = "/run/orv-locks/test-lock";

/// A pipe of which each process closes the end that it does not use.
struct Pipe {
  Pipe() {
    std::array<int, 2> ends{};
    EXPECT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
    reader.reset(ends[0]);
    writer.reset(ends[1]);
  }
  /// Waits until all other ends for writing are closed.
  void awaitEnd() {
    writer.reset();
    char byte = 0;
    static_cast<void>(::read(reader.get(), &byte, 1));
  }
  base::UniqueFd reader;
  base::UniqueFd writer;
};

milliseconds since(Clock::time_point begin) {
  return std::chrono::duration_cast<milliseconds>(Clock::now() - begin);
}

/// A process that takes the lock and holds it until it is told to let go, or is killed.
class Holder {
 public:
  Holder() : m_child([this] { return hold(); }) {
    m_told.writer.reset();
    m_go.reader.reset();
    char byte = 0;
    EXPECT_EQ(::read(m_told.reader.get(), &byte, 1), 1) << "the holder did not get the lock";
  }
  ~Holder() { letGo(); }

  void letGo() { m_go.writer.reset(); }
  void kill() {
    ::kill(m_child.pid(), SIGKILL);
    m_child.wait();
  }

 private:
  int hold() {
    m_go.writer.reset();
    InterProcessWriteLock lock(kName);
    if (!lock.lock(0)) return 1;
    char byte = 'x';
    static_cast<void>(::write(m_told.writer.get(), &byte, 1));
    static_cast<void>(::read(m_go.reader.get(), &byte, 1));
    return 0;
  }

  Pipe m_told;
  Pipe m_go;
  Child m_child;
};

class WriteLock : public PrivateDevice {};

TEST_F(WriteLock, IsTakenAndReleased) {
  InterProcessWriteLock lock(kName);
  EXPECT_TRUE(lock.lock(0));
  EXPECT_TRUE(lock.unlock());
  EXPECT_TRUE(lock.lock(0));
}

TEST_F(WriteLock, StandsInADirectoryAndAFileOfItsOwnerOnly) {
  const mode_t before = ::umask(0);
  InterProcessWriteLock lock(kName);
  EXPECT_FALSE(exists("/run/orv-locks")) << "nothing is made before it is needed";
  EXPECT_TRUE(lock.lock(0));
  ::umask(before);
  EXPECT_EQ(modeOf("/run/orv-locks"), 0700U);
  EXPECT_EQ(modeOf(kPath), 0600U);
}

TEST_F(WriteLock, ReportsAReleaseOfWhatIsNotHeld) {
  InterProcessWriteLock lock(kName);
  EXPECT_FALSE(lock.unlock());
  ASSERT_TRUE(lock.lock(0));
  EXPECT_TRUE(lock.unlock());
  EXPECT_FALSE(lock.unlock());
}

TEST_F(WriteLock, IsHeldByOneObjectOnly) {
  InterProcessWriteLock first(kName);
  InterProcessWriteLock second(kName);
  ASSERT_TRUE(first.lock(0));
  EXPECT_EQ(second.tryLock(), 0);
  EXPECT_FALSE(second.lock(0));
  EXPECT_FALSE(second.unlock());
  EXPECT_TRUE(first.unlock());
  EXPECT_NE(second.tryLock(), 0);
}

TEST_F(WriteLock, OfAnotherNameIsAnotherLock) {
  InterProcessWriteLock first("one");
  InterProcessWriteLock second("two");
  EXPECT_TRUE(first.lock(0));
  EXPECT_TRUE(second.lock(0));
}

TEST_F(WriteLock, ThatThisObjectHoldsCountsAsTaken) {
  InterProcessWriteLock lock(kName);
  ASSERT_TRUE(lock.lock(0));
  EXPECT_TRUE(lock.lock(0));
  EXPECT_NE(lock.tryLock(), 0);
  EXPECT_TRUE(lock.unlock());
  EXPECT_FALSE(lock.unlock());
}

TEST_F(WriteLock, EndsWithItsObject) {
  {
    InterProcessWriteLock lock(kName);
    ASSERT_TRUE(lock.lock(0));
  }
  EXPECT_NE(InterProcessWriteLock(kName).tryLock(), 0);
}

TEST_F(WriteLock, LetsAWaiterInWhenItsHolderIsDone) {
  InterProcessWriteLock holder(kName);
  ASSERT_TRUE(holder.lock(0));
  Child waiter([] { return InterProcessWriteLock(kName).lock(kLong) ? 0 : 1; });
  ASSERT_TRUE(bComesTrue([&] { return bWaitsForLock(waiter.pid()); }));
  ASSERT_TRUE(holder.unlock());
  EXPECT_EQ(waiter.exitStatus(), 0);
}

TEST_F(WriteLock, GivesUpWhenTheSecondsAreOver) {
  Holder holder;
  const auto begin = Clock::now();
  InterProcessWriteLock lock(kName);
  EXPECT_FALSE(lock.lock(1));
  EXPECT_GE(since(begin), milliseconds(950));
  EXPECT_LE(since(begin), kPatience);
  EXPECT_FALSE(lock.unlock());
}

TEST_F(WriteLock, WaitEndsAtOnceWithAnAlarm) {
  InterProcessWriteLock holder(kName);
  ASSERT_TRUE(holder.lock(0));
  const auto begin = Clock::now();
  Child waiter([] { return InterProcessWriteLock(kName).lock(kLong) ? 0 : 1; });
  ASSERT_TRUE(bComesTrue([&] { return bWaitsForLock(waiter.pid()); }));
  ASSERT_EQ(::kill(waiter.pid(), SIGALRM), 0);
  EXPECT_EQ(waiter.exitStatus(), 1);
  EXPECT_LT(since(begin), std::chrono::seconds(kLong));
}

TEST_F(WriteLock, WaitGoesOnAfterOtherSignals) {
  struct sigaction before {};
  struct sigaction interrupting {};
  interrupting.sa_handler = [](int) {};
  ASSERT_EQ(::sigaction(SIGUSR1, &interrupting, &before), 0);
  Holder holder;
  const pid_t waiting = ::getpid();
  Child signalling([&] {
    for (int i = 0; i < 30; ++i) {
      ::usleep(10'000);
      ::kill(waiting, SIGUSR1);
    }
    return 0;
  });
  const auto begin = Clock::now();
  InterProcessWriteLock lock(kName);
  EXPECT_FALSE(lock.lock(1)) << "within the same deadline";
  EXPECT_GE(since(begin), milliseconds(950));
  EXPECT_LE(since(begin), kPatience);
  EXPECT_EQ(signalling.exitStatus(), 0);  // it may be late, and would end this process once that is deaf no more
  ::sigaction(SIGUSR1, &before, nullptr);
}

TEST_F(WriteLock, WaitCostsNoProcessorTime) {
  Holder holder;
  timespec begin{};
  timespec end{};
  ASSERT_EQ(::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &begin), 0);
  InterProcessWriteLock lock(kName);
  EXPECT_FALSE(lock.lock(1));
  ASSERT_EQ(::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &end), 0);
  const double spent =
      static_cast<double>(end.tv_sec - begin.tv_sec) + static_cast<double>(end.tv_nsec - begin.tv_nsec) / 1e9;
  EXPECT_LE(spent, 0.2);
}

TEST_F(WriteLock, GoesWithAHolderThatIsKilled) {
  Holder holder;
  InterProcessWriteLock lock(kName);
  ASSERT_EQ(lock.tryLock(), 0);
  holder.kill();
  EXPECT_TRUE(lock.lock(kLong));
}

TEST_F(WriteLock, IsNotHeldByAStartedCommand) {
  Pipe running;  // until the command's standard input ends
  Child holder([&] {
    running.writer.reset();
    InterProcessWriteLock lock(kName);
    if (!lock.lock(0)) return 1;
    Pipe started;
    if (::fork() == 0) {
      ::dup2(running.reader.get(), STDIN_FILENO);
      ::execl("/bin/cat", "cat", nullptr);
      ::_exit(1);
    }
    started.awaitEnd();  // the start of the command closes it there
    ::kill(::getpid(), SIGKILL);
    return 2;
  });
  EXPECT_EQ(WTERMSIG(holder.wait()), SIGKILL);
  EXPECT_NE(InterProcessWriteLock(kName).tryLock(), 0);
}

TEST_F(WriteLock, ReleasedIsNotHeldByAChildThatHasNotStartedItsCommandYet) {
  InterProcessWriteLock lock(kName);
  ASSERT_TRUE(lock.lock(0));
  Pipe living;
  const Child child([&]() -> int {
    living.awaitEnd();
    ::_exit(0);
  });
  ASSERT_TRUE(lock.unlock());
  EXPECT_NE(InterProcessWriteLock(kName).tryLock(), 0);
  living.writer.reset();
}

TEST_F(WriteLock, IsRemovedByName) {
  InterProcessWriteLock lock(kName);
  ASSERT_TRUE(lock.lock(0));
  InterProcessWriteLock::cleanSemaphore(kName);
  EXPECT_FALSE(exists(kPath));
  EXPECT_TRUE(lock.unlock());
  InterProcessWriteLock::cleanSemaphore(kName);  // there is nothing to remove
}

TEST_F(WriteLock, WaiterStartsAgainWhenTheObjectIsRemovedMeanwhile) {
  InterProcessWriteLock holder(kName);
  ASSERT_TRUE(holder.lock(0));
  Child waiter([] {
    InterProcessWriteLock lock(kName);
    if (!lock.lock(kLong)) return 1;
    struct stat info {};
    if (::stat(kPath, &info) != 0) return 2;  // it holds a file that nobody can find
    return InterProcessWriteLock(kName).tryLock() == 0 ? 0 : 3;
  });
  ASSERT_TRUE(bComesTrue([&] { return bWaitsForLock(waiter.pid()); }));
  InterProcessWriteLock::cleanSemaphore(kName);
  ASSERT_TRUE(holder.unlock());
  EXPECT_EQ(waiter.exitStatus(), 0);
}

}  // namespace
}  // namespace kelt::tests
