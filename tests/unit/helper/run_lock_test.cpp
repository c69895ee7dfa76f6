#include "helper/run_lock.h"

#include "support/private_device.h"

#include "helper/agent_paths.h"

namespace kelt::helper {
namespace {

constexpr const char* kLockFile = "/run/orv-locks/71D551C0-D2DA-42F0-BB87-E4CE5347DD14-sync_mutex";

class RunLock : public tests::PrivateDevice {};

TEST_F(RunLock, IsGivenBackWithItsFileWhereNobodyElseWantsIt) {
  InterProcessWriteLock lock(paths::kInstanceLock);
  ASSERT_TRUE(lock.lock(kLockSeconds));
  ASSERT_TRUE(tests::exists(kLockFile));
  EXPECT_TRUE(giveLockBack(lock));
  EXPECT_FALSE(tests::exists(kLockFile));
}

TEST_F(RunLock, StaysWithWhoeverHasItByThen) {
  InterProcessWriteLock lost(paths::kInstanceLock);
  InterProcessWriteLock next(paths::kInstanceLock);
  ASSERT_TRUE(next.lock(kLockSeconds));
  EXPECT_FALSE(giveLockBack(lost));
  EXPECT_TRUE(tests::exists(kLockFile));
  EXPECT_EQ(lost.tryLock(), 0);
  EXPECT_TRUE(giveLockBack(next));
  EXPECT_FALSE(tests::exists(kLockFile));
}

}  // namespace
}  // namespace kelt::helper
