#include "app/instance_lock.h"

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <optional>
#include <poll.h>
#include <stdexcept>

#include "support/child.h"
#include "support/private_device.h"
#include "support/waiting.h"

#include "base/unique_fd.h"

namespace kelt::app {
namespace {

constexpr const char* kLockDir = "/run/orv-locks";
constexpr const char* kLockFile = "/run/orv-locks/71D551C0-D2DA-42F0-BB87-E4CE5347DD14-sync_mutex";
constexpr const char* kLog = "/opt/Quorvane/orv/scratch/logs/keltcfg.log";

/// A pipe whose reading end tells when the child wrote to it.
struct Pipe {
  Pipe() {
    int ends[2];
    EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    read.reset(ends[0]);
    write.reset(ends[1]);
  }
  [[nodiscard]] bool bWritten(int milliseconds = tests::kPatienceMilliseconds) const {
    pollfd waiting{read.get(), POLLIN, 0};
    return ::poll(&waiting, 1, milliseconds) == 1;
  }
  void tell() const { EXPECT_EQ(::write(write.get(), "x", 1), 1); }
  base::UniqueFd read;
  base::UniqueFd write;
};

class InstanceLockTest : public tests::PrivateDevice {
 protected:
  void SetUp() override {
    PrivateDevice::SetUp();
    tests::putDirectory("/opt/Quorvane/orv/scratch");
  }
};

TEST_F(InstanceLockTest, LeavesNothingBehindWhenItEnds) {
  {
    const lock_raii lock;
    EXPECT_TRUE(tests::exists(kLockFile));
  }
  EXPECT_FALSE(tests::exists(kLockFile));
  {
    const lock_raii again;
    EXPECT_TRUE(tests::exists(kLockFile));
  }
  EXPECT_FALSE(tests::exists(kLockFile));
  EXPECT_FALSE(tests::exists(kLog)) << "a run without trouble logs nothing";
}

TEST_F(InstanceLockTest, ASecondProcessWaitsForTheFirst) {
  Pipe entered;
  std::optional<lock_raii> first(std::in_place);
  tests::Child second([&] {
    const lock_raii lock;
    entered.tell();
    return 0;
  });
  ASSERT_TRUE(tests::bComesTrue([&] { return tests::bWaitsForLock(second.pid()); }));
  EXPECT_FALSE(entered.bWritten(0));
  first.reset();
  EXPECT_TRUE(entered.bWritten());
  EXPECT_EQ(second.exitStatus(), 0);
  EXPECT_FALSE(tests::exists(kLockFile));
}

TEST_F(InstanceLockTest, AKilledHolderHoldsNothing) {
  Pipe held;
  tests::Child holder([&] {
    const lock_raii lock;
    held.tell();
    ::pause();
    return 0;
  });
  ASSERT_TRUE(held.bWritten());
  ::kill(holder.pid(), SIGKILL);
  holder.wait();
  const lock_raii lock;
  EXPECT_TRUE(tests::exists(kLockFile));
}

TEST_F(InstanceLockTest, ThrowsWhenTheTimeIsOver) {
  const lock_raii first;
  tests::Child second([] {
    try {
      const lock_raii lock;
    } catch (const std::runtime_error& error) {
      return std::string(error.what()) == "Failed to get keltconfig lock" ? 42 : 43;
    }
    return 0;
  });
  ASSERT_TRUE(tests::bComesTrue([&] { return tests::bWaitsForLock(second.pid()); }));
  ::kill(second.pid(), SIGALRM);  // what the end of the time looks like to the waiting process
  EXPECT_EQ(second.exitStatus(), 42);
  EXPECT_NE(tests::contentOf(kLog).find("\tkeltcfg\tUnable to acquire lock\n"), std::string::npos);
  EXPECT_TRUE(tests::exists(kLockFile)) << "the first still holds it";
}

TEST_F(InstanceLockTest, ThrowsWhereTheLockCannotBeMade) {
  tests::putDirectory(kLockFile);
  EXPECT_THROW(lock_raii(), std::runtime_error);
  EXPECT_NE(tests::contentOf(kLog).find("\tkeltcfg\tUnable to acquire lock\n"), std::string::npos);
  EXPECT_TRUE(tests::exists(kLockFile));
}

TEST_F(InstanceLockTest, TheNextOneToWaitKeepsTheLocksFile) {
  Pipe entered;
  Pipe leave;
  std::optional<lock_raii> first(std::in_place);
  tests::Child second([&] {
    const lock_raii lock;
    entered.tell();
    EXPECT_TRUE(leave.bWritten());
    return tests::exists(kLockFile) ? 0 : 1;
  });
  ASSERT_TRUE(tests::bComesTrue([&] { return tests::bWaitsForLock(second.pid()); }));
  first.reset();
  ASSERT_TRUE(entered.bWritten());
  leave.tell();
  EXPECT_EQ(second.exitStatus(), 0);
  EXPECT_FALSE(tests::exists(kLockFile));
  EXPECT_TRUE(tests::namesIn(kLockDir).empty());
}

/// Closes the descriptor of the lock's file behind the lock's back.
void closeLockFile() {
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code ignored;
    if (std::filesystem::read_symlink(entry.path(), ignored) == kLockFile) {
      ::close(std::stoi(entry.path().filename()));
      return;
    }
  }
  FAIL() << "nobody has the lock's file open";
}

TEST_F(InstanceLockTest, AFailedReleaseIsLoggedAndChangesNothingElse) {
  tests::Child run([] {
    const lock_raii lock;
    closeLockFile();
    return 0;
  });
  EXPECT_EQ(run.exitStatus(), 0);
  EXPECT_NE(tests::contentOf(kLog).find("\tkeltcfg\tUnable to unlock interprocess lock\n"), std::string::npos);
  const lock_raii next;
  EXPECT_TRUE(tests::exists(kLockFile));
}

TEST_F(InstanceLockTest, AHolderThatLostTheLockLeavesTheNextOnesFile) {
  Pipe entered;
  Pipe leave;
  tests::Child run([&] {
    std::optional<lock_raii> first(std::in_place);
    closeLockFile();
    tests::Child second([&] {
      const lock_raii lock;
      entered.tell();
      return leave.bWritten() && tests::exists(kLockFile) ? 0 : 1;
    });
    if (!entered.bWritten()) return 2;
    first.reset();
    leave.tell();
    return second.exitStatus();
  });
  EXPECT_EQ(run.exitStatus(), 0);
  EXPECT_FALSE(tests::exists(kLockFile)) << "the last one removes it";
}

}  // namespace
}  // namespace kelt::app
