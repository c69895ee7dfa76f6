// What may stand in the lock's place, and what may not.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/private_device.h"

#include "platform/interprocess_write_lock.h"

namespace kelt::tests {
namespace {

constexpr const char* kPath = "/run/orv-locks/test-lock";

/// Whether the lock cannot be taken in either way.
bool bRefused(const std::string& name = "test-lock") {
  InterProcessWriteLock lock(name);
  return !lock.lock(0) && lock.tryLock() == 0;
}

class WriteLockRefuses : public PrivateDevice {
 protected:
  static void makeDirectory() { putDirectory("/run/orv-locks", 0700); }
};

TEST_F(WriteLockRefuses, NothingThatIsItsOwn) {
  makeDirectory();
  putFile(kPath, "", 0600);
  EXPECT_FALSE(bRefused());
}

TEST_F(WriteLockRefuses, NoDirectoryThatOthersMayOnlyRead) {
  putDirectory("/run/orv-locks", 0755);
  EXPECT_FALSE(bRefused());
}

TEST_F(WriteLockRefuses, ADirectoryThatOthersMayWriteTo) {
  for (const mode_t mode : {0770U, 0707U, 01777U}) {
    putDirectory("/run/orv-locks", mode);
    EXPECT_TRUE(bRefused()) << mode;
    EXPECT_EQ(namesIn("/run/orv-locks"), std::vector<std::string>{});
  }
}

TEST_F(WriteLockRefuses, ADirectoryOfSomebodyElse) {
  putForeignDirectory("/run/orv-locks");
  EXPECT_TRUE(bRefused());
}

TEST_F(WriteLockRefuses, ALinkInPlaceOfTheDirectory) {
  putDirectory("/tmp/elsewhere", 0700);
  ASSERT_EQ(::symlink("/tmp/elsewhere", "/run/orv-locks"), 0);
  EXPECT_TRUE(bRefused());
  EXPECT_EQ(namesIn("/tmp/elsewhere"), std::vector<std::string>{});
}

TEST_F(WriteLockRefuses, AFileInPlaceOfTheDirectory) {
  putFile("/run/orv-locks", "kept", 0600);
  EXPECT_TRUE(bRefused());
  EXPECT_EQ(contentOf("/run/orv-locks"), "kept");
}

TEST_F(WriteLockRefuses, AFileThatOthersMayOpen) {
  makeDirectory();
  for (const mode_t mode : {0640U, 0604U, 0620U, 0602U, 0610U, 0666U}) {
    putFile(kPath, "", mode);
    EXPECT_TRUE(bRefused()) << mode;
  }
}

TEST_F(WriteLockRefuses, AFileOfSomebodyElse) {
  makeDirectory();
  putFile(kPath, "", 0600);
  // Where there is only one user, nothing here can belong to another.
  const bool bForeign = ::chown(kPath, 12, 34) == 0;
  EXPECT_EQ(bRefused(), bForeign);
}

TEST_F(WriteLockRefuses, AFileWithASecondName) {
  makeDirectory();
  putFile(kPath, "", 0600);
  ASSERT_EQ(::link(kPath, "/run/orv-locks/other"), 0);
  EXPECT_TRUE(bRefused());
}

TEST_F(WriteLockRefuses, ALinkInPlaceOfTheFile) {
  makeDirectory();
  putFile("/tmp/target", "kept", 0600);
  ASSERT_EQ(::symlink("/tmp/target", kPath), 0);
  EXPECT_TRUE(bRefused());
  ASSERT_EQ(::unlink(kPath), 0);
  ASSERT_EQ(::symlink("/tmp/made", kPath), 0);
  EXPECT_TRUE(bRefused());
  EXPECT_FALSE(exists("/tmp/made"));
}

TEST_F(WriteLockRefuses, WhatIsNotARegularFile) {
  makeDirectory();
  ASSERT_EQ(::mkfifo(kPath, 0600), 0);
  EXPECT_TRUE(bRefused());
  ASSERT_EQ(::unlink(kPath), 0);
  putDirectory(kPath, 0700);
  EXPECT_TRUE(bRefused());
}

TEST_F(WriteLockRefuses, NamesThatLeadElsewhere) {
  putFile("/run/other", "kept");
  for (const char* name : {"", ".", "..", ".hidden", "../other", "a/b", "/run/other"}) {
    EXPECT_TRUE(bRefused(name)) << name;
    InterProcessWriteLock::cleanSemaphore(name);
  }
  EXPECT_EQ(contentOf("/run/other"), "kept");
  EXPECT_EQ(namesIn("/run"), std::vector<std::string>{"other"});
}

TEST_F(WriteLockRefuses, ToWaitWhereTheDirectoryCannotBeMade) {
  mountReadOnly("/run");
  EXPECT_TRUE(bRefused());
  InterProcessWriteLock lock("test-lock");
  EXPECT_FALSE(lock.lock(300));
}

}  // namespace
}  // namespace kelt::tests
