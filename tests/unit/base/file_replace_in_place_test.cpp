// The files beside which no other can be made or renamed.

#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/child.h"
#include "support/private_device.h"

#include "base/file_replace.h"

namespace kelt::base {
namespace {

using tests::contentOf;
using tests::namesIn;
using tests::putDirectory;
using tests::putFile;

using Names = std::vector<std::string>;

ino_t inodeOf(const std::string& path) {
  struct stat info {};
  EXPECT_EQ(::stat(path.c_str(), &info), 0);
  return info.st_ino;
}

class ReplaceFileInPlace : public tests::PrivateDevice {
 protected:
  void TearDown() override {
    for (; !m_mounted.empty(); m_mounted.pop_back())
      ::umount2(m_mounted.back().c_str(), MNT_DETACH);
  }

  /// Makes `path` a mount point of its own, behind which is the file `source`.
  void mountFile(const std::string& source, const std::string& path) {
    ASSERT_EQ(::mount(source.c_str(), path.c_str(), nullptr, MS_BIND, nullptr), 0);
    m_mounted.push_back(path);
  }

  /// The directory /tmp/d with the file f, which is a mount point; behind it is `source`.
  void makeMountedFile(const std::string& source) {
    putDirectory("/tmp/d");
    putFile("/tmp/d/f", "hidden");
    mountFile(source, "/tmp/d/f");
  }

 private:
  std::vector<std::string> m_mounted;
};

TEST_F(ReplaceFileInPlace, WritesAFileThatIsAMountPoint) {
  putFile("/tmp/source", "a longer old content", 0640);
  makeMountedFile("/tmp/source");
  const ino_t inode = inodeOf("/tmp/source");
  ASSERT_TRUE(replaceFile("/tmp/d/f", "new").ok());
  EXPECT_EQ(contentOf("/tmp/d/f"), "new");
  EXPECT_EQ(contentOf("/tmp/source"), "new");
  EXPECT_EQ(inodeOf("/tmp/source"), inode);
  EXPECT_EQ(tests::modeOf("/tmp/source"), 0640U);
  EXPECT_EQ(namesIn("/tmp/d"), Names{"f"});
  ASSERT_TRUE(replaceFile("/tmp/d/f", "something longer than before").ok());
  EXPECT_EQ(contentOf("/tmp/source"), "something longer than before");
}

TEST_F(ReplaceFileInPlace, CopiesIntoAFileThatIsAMountPoint) {
  const std::string content(200'000, 'n');
  putFile("/tmp/from", content);
  putFile("/tmp/source", std::string(300'000, 'o'), 0640);
  makeMountedFile("/tmp/source");
  ASSERT_TRUE(copyFile("/tmp/from", "/tmp/d/f").ok());
  EXPECT_TRUE(contentOf("/tmp/source") == content);
  EXPECT_EQ(tests::modeOf("/tmp/source"), 0640U);
  EXPECT_EQ(namesIn("/tmp/d"), Names{"f"});
}

TEST_F(ReplaceFileInPlace, ASourceThatCannotBeReadToItsEndCostsNothing) {
  putDirectory("/tmp/ro");
  putFile("/tmp/ro/f", "hidden");
  putFile("/tmp/source", "old");
  tests::mountReadOnly("/tmp/ro");
  mountFile("/tmp/source", "/tmp/ro/f");
  // The memory of a process is a regular file whose first page cannot be read.
  EXPECT_EQ(copyFile("/proc/self/mem", "/tmp/ro/f").error().sysErrno, EIO);
  EXPECT_EQ(contentOf("/tmp/source"), "old");
}

TEST_F(ReplaceFileInPlace, WritesAWritableFileInAReadOnlyDirectory) {
  putDirectory("/tmp/ro");
  putFile("/tmp/ro/f", "hidden");
  putFile("/tmp/source", "old");
  tests::mountReadOnly("/tmp/ro");
  mountFile("/tmp/source", "/tmp/ro/f");
  ASSERT_TRUE(replaceFile("/tmp/ro/f", "new").ok());
  EXPECT_EQ(contentOf("/tmp/source"), "new");
}

TEST_F(ReplaceFileInPlace, FailsForAReadOnlyFile) {
  putDirectory("/tmp/ro");
  putFile("/tmp/ro/f", "old");
  tests::mountReadOnly("/tmp/ro");
  const auto done = replaceFile("/tmp/ro/f", "new");
  ASSERT_FALSE(done.ok());
  EXPECT_EQ(done.error().sysErrno, EROFS);
  EXPECT_EQ(contentOf("/tmp/ro/f"), "old");
}

TEST_F(ReplaceFileInPlace, DoesNotMakeANewFileInAReadOnlyDirectory) {
  putDirectory("/tmp/ro");
  tests::mountReadOnly("/tmp/ro");
  EXPECT_EQ(replaceFile("/tmp/ro/f", "new").error().sysErrno, EROFS);
  EXPECT_EQ(namesIn("/tmp/ro"), Names{});
}

TEST_F(ReplaceFileInPlace, KeepsTheOldContentWhereTheDiskIsTooFullForTheNew) {
  tests::mountSmall("/tmp/small", 64 * 1024);
  putFile("/tmp/small/f", "old");
  putFile("/tmp/small/ballast", std::string(40 * 1024, 'x'));
  makeMountedFile("/tmp/small/f");
  const auto done = replaceFile("/tmp/d/f", std::string(48 * 1024, 'n'));
  ASSERT_FALSE(done.ok());
  EXPECT_EQ(done.error().sysErrno, ENOSPC);
  EXPECT_EQ(contentOf("/tmp/d/f"), "old");
  putFile("/tmp/from", std::string(48 * 1024, 'n'));
  EXPECT_EQ(copyFile("/tmp/from", "/tmp/d/f").error().sysErrno, ENOSPC);
  EXPECT_EQ(contentOf("/tmp/d/f"), "old");
  EXPECT_EQ(namesIn("/tmp/d"), Names{"f"});
}

TEST_F(ReplaceFileInPlace, WritesAFileInADirectoryThatIsClosedToUs) {
  putDirectory("/tmp/d", 0500);
  putFile("/tmp/d/f", "a longer old content", 0600);
  tests::Child child([] {
    if (!tests::dropCapabilities()) return 2;
    return replaceFile("/tmp/d/f", "new").ok() && !replaceFile("/tmp/d/other", "new").ok() ? 0 : 1;
  });
  EXPECT_EQ(child.exitStatus(), 0);
  EXPECT_EQ(contentOf("/tmp/d/f"), "new");
  EXPECT_EQ(namesIn("/tmp/d"), Names{"f"});
}

}  // namespace
}  // namespace kelt::base
