#include "base/file_lock.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

#include "support/child.h"
#include "support/private_device.h"

#include "base/unique_fd.h"

namespace kelt::base {
namespace {

constexpr const char* kPath = "/tmp/locked";

UniqueFd opened() {
  return UniqueFd(::open(kPath, O_RDWR | O_CREAT | O_CLOEXEC, 0600));
}

class FileLocks : public tests::PrivateDevice {};

TEST_F(FileLocks, AreForOneOrForSeveral) {
  const UniqueFd one = opened();
  const UniqueFd other = opened();
  ASSERT_TRUE(tryFileLock(one.get(), FileLock::kShared));
  EXPECT_TRUE(tryFileLock(other.get(), FileLock::kShared));
  EXPECT_FALSE(tryFileLock(one.get(), FileLock::kExclusive)) << "somebody else reads";
  EXPECT_EQ(errno, EAGAIN);
  ASSERT_TRUE(releaseFileLock(other.get()));
  EXPECT_TRUE(tryFileLock(one.get(), FileLock::kExclusive));
  EXPECT_FALSE(tryFileLock(other.get(), FileLock::kShared));
}

TEST_F(FileLocks, ThatCannotBeTakenLeaveTheOneThatIsHeld) {
  const UniqueFd one = opened();
  const UniqueFd other = opened();
  ASSERT_TRUE(tryFileLock(one.get(), FileLock::kShared));
  ASSERT_TRUE(tryFileLock(other.get(), FileLock::kShared));
  ASSERT_FALSE(tryFileLock(one.get(), FileLock::kExclusive));
  EXPECT_FALSE(tryFileLock(other.get(), FileLock::kExclusive)) << "the first one is still shared";
}

TEST_F(FileLocks, OfOthersAreSeenWithoutTakingOne) {
  const UniqueFd one = opened();
  const UniqueFd reading(::open(kPath, O_RDONLY | O_CLOEXEC));
  EXPECT_EQ(lookForOtherLock(reading.get()), false);
  for (const FileLock kind : {FileLock::kShared, FileLock::kExclusive}) {
    ASSERT_TRUE(tryFileLock(one.get(), kind));
    EXPECT_EQ(lookForOtherLock(reading.get()), true);
    EXPECT_EQ(lookForOtherLock(one.get()), false) << "its own is no other";
  }
  ASSERT_TRUE(releaseFileLock(one.get()));
  EXPECT_EQ(lookForOtherLock(reading.get()), false);
  EXPECT_TRUE(tryFileLock(one.get(), FileLock::kExclusive)) << "none was taken by looking";
  EXPECT_EQ(lookForOtherLock(-1), std::nullopt);
  EXPECT_EQ(errno, EBADF);
}

TEST_F(FileLocks, OutliveOtherDescriptorsOfTheFile) {
  const UniqueFd one = opened();
  ASSERT_TRUE(tryFileLock(one.get(), FileLock::kExclusive));
  opened().reset();
  EXPECT_FALSE(tryFileLock(opened().get(), FileLock::kShared));
}

TEST_F(FileLocks, EndWithTheLastDescriptorOfTheirs) {
  UniqueFd one = opened();
  ASSERT_TRUE(tryFileLock(one.get(), FileLock::kExclusive));
  UniqueFd same(::fcntl(one.get(), F_DUPFD_CLOEXEC, 0));
  one.reset();
  EXPECT_FALSE(tryFileLock(opened().get(), FileLock::kExclusive));
  same.reset();
  EXPECT_TRUE(tryFileLock(opened().get(), FileLock::kExclusive));
}

TEST_F(FileLocks, AreWaitedFor) {
  UniqueFd one = opened();
  ASSERT_TRUE(tryFileLock(one.get(), FileLock::kExclusive));
  tests::Child waiting([&one] {
    one.reset();  // else the child's copy would hold the lock too
    return waitForFileLock(opened().get(), FileLock::kExclusive) ? 0 : 1;
  });
  one.reset();
  EXPECT_EQ(waiting.exitStatus(), 0);
}

TEST_F(FileLocks, NeedADescriptorThatIsOpenForTheirKind) {
  const UniqueFd file = opened();
  const UniqueFd readOnly(::open(kPath, O_RDONLY | O_CLOEXEC));
  EXPECT_TRUE(tryFileLock(readOnly.get(), FileLock::kShared));
  EXPECT_FALSE(tryFileLock(readOnly.get(), FileLock::kExclusive));
  EXPECT_EQ(errno, EBADF);
  EXPECT_TRUE(releaseFileLock(file.get())) << "what holds no lock has nothing to give up";
  EXPECT_FALSE(releaseFileLock(-1));
}

TEST_F(FileLocks, TellWhetherThePathStillNamesTheFile) {
  const UniqueFd file = opened();
  struct stat info {};
  ASSERT_EQ(::fstat(file.get(), &info), 0);
  EXPECT_TRUE(bStillNamed(kPath, info));
  ASSERT_EQ(::rename(kPath, "/tmp/moved"), 0);
  EXPECT_FALSE(bStillNamed(kPath, info)) << "nothing is there";
  ASSERT_EQ(::symlink("moved", kPath), 0);
  EXPECT_FALSE(bStillNamed(kPath, info)) << "a link to it is another file";
  ASSERT_EQ(::unlink(kPath), 0);
  const UniqueFd other = opened();
  EXPECT_FALSE(bStillNamed(kPath, info)) << "another file of the name";
  EXPECT_TRUE(bStillNamed("/tmp/moved", info));
}

}  // namespace
}  // namespace kelt::base
