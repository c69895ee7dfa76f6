#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/child.h"
#include "support/private_device.h"

#include "base/file_replace.h"

namespace kelt::base {
namespace {

using tests::contentOf;
using tests::modeOf;
using tests::putDirectory;
using tests::putFile;

class CopyFile : public tests::PrivateDevice {
 protected:
  void SetUp() override {
    PrivateDevice::SetUp();
    putDirectory("/tmp/d");
  }
};

TEST_F(CopyFile, GivesANewFileThePermissionBitsOfItsSource) {
  for (const mode_t mode : {0600U, 0644U, 0755U}) {
    putFile("/tmp/from", "content", mode);
    ASSERT_TRUE(copyFile("/tmp/from", "/tmp/d/to").ok());
    EXPECT_EQ(contentOf("/tmp/d/to"), "content");
    EXPECT_EQ(modeOf("/tmp/d/to"), mode);
    ::unlink("/tmp/d/to");
  }
  EXPECT_EQ(contentOf("/tmp/from"), "content");
}

TEST_F(CopyFile, GivesNoSetIdBitsAway) {
  putFile("/tmp/from", "content", 04755);
  ASSERT_TRUE(copyFile("/tmp/from", "/tmp/d/to").ok());
  EXPECT_EQ(modeOf("/tmp/d/to"), 0755U);
}

TEST_F(CopyFile, KeepsTheModeOfAFileThatIsThere) {
  putFile("/tmp/from", "content", 0600);
  putFile("/tmp/d/to", "something longer", 0644);
  ASSERT_TRUE(copyFile("/tmp/from", "/tmp/d/to").ok());
  EXPECT_EQ(contentOf("/tmp/d/to"), "content");
  EXPECT_EQ(modeOf("/tmp/d/to"), 0644U);
}

TEST_F(CopyFile, CopiesAnEmptyFileAndBytesOfEveryKind) {
  putFile("/tmp/from", "");
  ASSERT_TRUE(copyFile("/tmp/from", "/tmp/d/to").ok());
  EXPECT_EQ(contentOf("/tmp/d/to"), "");
  const std::string bytes("\0\xFF\r\n\x1A", 5);
  putFile("/tmp/from", bytes);
  ASSERT_TRUE(copyFile("/tmp/from", "/tmp/d/to").ok());
  EXPECT_EQ(contentOf("/tmp/d/to"), bytes);
}

struct stat statusOf(const char* path) {
  struct stat info {};
  EXPECT_EQ(::lstat(path, &info), 0) << path;
  return info;
}

TEST_F(CopyFile, LeavesAFileThatIsCopiedToItselfAsItWas) {
  putFile("/tmp/from", "content", 0640);
  ASSERT_EQ(::symlink("/tmp/from", "/tmp/d/link"), 0);
  ASSERT_EQ(::link("/tmp/from", "/tmp/d/second"), 0);
  const struct stat before = statusOf("/tmp/from");
  for (const char* to : {"/tmp/from", "/tmp/d/../from", "/tmp/d/link", "/tmp/d/second"}) {
    EXPECT_TRUE(copyFile("/tmp/from", to).ok()) << to;
    EXPECT_TRUE(copyFile(to, "/tmp/from").ok()) << to;
  }
  const struct stat after = statusOf("/tmp/from");
  EXPECT_EQ(after.st_ino, before.st_ino);
  EXPECT_EQ(after.st_ctim.tv_nsec, before.st_ctim.tv_nsec) << "not even written";
  EXPECT_EQ(contentOf("/tmp/from"), "content");
  EXPECT_EQ(tests::namesIn("/tmp/d"), (std::vector<std::string>{"link", "second"}));
}

TEST_F(CopyFile, TakesNoMoreMemoryForALargeFile) {
  putFile("/tmp/from", "");
  constexpr off_t kSize = off_t{96} * 1024 * 1024;
  ASSERT_EQ(::truncate("/tmp/from", kSize), 0);
  tests::Child child([] {
    const auto peak = [] {
      rusage used{};
      return ::getrusage(RUSAGE_SELF, &used) == 0 ? used.ru_maxrss : -1;
    };
    const long before = peak();
    if (!copyFile("/tmp/from", "/tmp/d/to").ok()) return 1;
    return before > 0 && peak() - before < 8 * 1024 ? 0 : 2;  // KiB
  });
  EXPECT_EQ(child.exitStatus(), 0);
  EXPECT_EQ(statusOf("/tmp/d/to").st_size, kSize);
}

TEST_F(CopyFile, CopiesInPiecesWithoutAFault) {
  std::string content;
  for (int i = 0; content.size() < 300'000; ++i)
    content += std::to_string(i) + ",";
  putFile("/tmp/from", content);
  ASSERT_TRUE(copyFile("/tmp/from", "/tmp/d/to").ok());
  EXPECT_TRUE(contentOf("/tmp/d/to") == content);
}

TEST_F(CopyFile, RefusesASourceThatIsNotAFileAndLeavesTheTarget) {
  putFile("/tmp/d/to", "old");
  putDirectory("/tmp/dir");
  ASSERT_EQ(::mkfifo("/tmp/fifo", 0600), 0);
  for (const char* from : {"/tmp/dir", "/tmp/fifo", "/dev/zero"}) {
    EXPECT_EQ(copyFile(from, "/tmp/d/to").error().kind, ErrorKind::kRefused) << from;
  }
  EXPECT_EQ(copyFile("/tmp/none", "/tmp/d/to").error().kind, ErrorKind::kNotFound);
  EXPECT_EQ(contentOf("/tmp/d/to"), "old");
}

TEST_F(CopyFile, MakesNothingOfAMissingSource) {
  EXPECT_FALSE(copyFile("/tmp/none", "/tmp/d/to").ok());
  EXPECT_FALSE(tests::exists("/tmp/d/to"));
}

TEST_F(CopyFile, RefusesADirectoryAsTarget) {
  putFile("/tmp/from", "content");
  EXPECT_EQ(copyFile("/tmp/from", "/tmp/d").error().kind, ErrorKind::kRefused);
}

}  // namespace
}  // namespace kelt::base
