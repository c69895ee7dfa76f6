#include "base/file_read.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/private_device.h"

namespace kelt::base {
namespace {

using tests::putDirectory;
using tests::putFile;

class FileRead : public tests::PrivateDevice {};

TEST_F(FileRead, ReadsAWholeFile) {
  const std::string content("a\0b\xFF\n", 5);
  putFile("/tmp/f", content);
  const auto bytes = readFile("/tmp/f");
  ASSERT_TRUE(bytes.ok());
  EXPECT_EQ(std::string(bytes.value().begin(), bytes.value().end()), content);
  EXPECT_EQ(readText("/tmp/f").value(), content);
}

TEST_F(FileRead, ReadsAnEmptyFile) {
  putFile("/tmp/f", "");
  EXPECT_TRUE(readFile("/tmp/f").value().empty());
  EXPECT_EQ(readText("/tmp/f").value(), "");
}

TEST_F(FileRead, ReadsMoreThanOneChunk) {
  std::string content;
  while (content.size() < 300'000)
    content += std::to_string(content.size()) + "\n";
  putFile("/tmp/f", content);
  EXPECT_EQ(readText("/tmp/f").value(), content);
}

TEST_F(FileRead, ReadsAFileWhoseSizeSaysNothing) {
  const auto text = readText("/proc/self/status");
  ASSERT_TRUE(text.ok());
  EXPECT_EQ(text.value().substr(0, 6), "Name:\t");
}

TEST_F(FileRead, FollowsASymbolicLink) {
  putFile("/tmp/f", "content");
  ASSERT_EQ(::symlink("f", "/tmp/link"), 0);
  EXPECT_EQ(readText("/tmp/link").value(), "content");
}

TEST_F(FileRead, TellsAMissingFile) {
  EXPECT_EQ(readFile("/tmp/none").error().kind, ErrorKind::kNotFound);
  putFile("/tmp/f", "");
  EXPECT_EQ(readFile("/tmp/f/below").error().kind, ErrorKind::kNotFound);
  ASSERT_EQ(::symlink("none", "/tmp/dangling"), 0);
  EXPECT_EQ(readFile("/tmp/dangling").error().kind, ErrorKind::kNotFound);
}

TEST_F(FileRead, NamesTheFileInItsErrors) {
  EXPECT_EQ(readFile("/tmp/none").error().message, "stat /tmp/none: No such file or directory");
}

TEST_F(FileRead, RefusesADirectoryAFifoAndADevice) {
  putDirectory("/tmp/dir");
  ASSERT_EQ(::mkfifo("/tmp/fifo", 0600), 0);
  for (const char* path : {"/tmp/dir", "/tmp/fifo", "/dev/null"}) {
    EXPECT_EQ(openRegular(path).error().kind, ErrorKind::kRefused) << path;
    EXPECT_EQ(readFile(path).error().kind, ErrorKind::kRefused) << path;
    EXPECT_EQ(regularFileSize(path).error().kind, ErrorKind::kRefused) << path;
  }
}

TEST_F(FileRead, FailsOnALoopOfLinks) {
  ASSERT_EQ(::symlink("loop", "/tmp/loop"), 0);
  const auto error = readFile("/tmp/loop").error();
  EXPECT_EQ(error.kind, ErrorKind::kSystem);
  EXPECT_EQ(error.sysErrno, ELOOP);
}

TEST_F(FileRead, ReadsUpToItsLimitAndNotBeyond) {
  putFile("/tmp/f", "12345");
  EXPECT_EQ(readText("/tmp/f", 5).value(), "12345");
  EXPECT_EQ(readText("/tmp/f", 4).error().kind, ErrorKind::kTooLarge);
  EXPECT_EQ(readFile("/proc/self/status", 10).error().kind, ErrorKind::kTooLarge);
}

TEST_F(FileRead, DoesNotReadAHugeFileIntoMemory) {
  putFile("/tmp/f", "");
  ASSERT_EQ(::truncate("/tmp/f", off_t{1} << 33), 0);  // all hole
  EXPECT_EQ(readFile("/tmp/f").error().kind, ErrorKind::kTooLarge);
  EXPECT_EQ(regularFileSize("/tmp/f").value(), std::uint64_t{1} << 33);
}

TEST_F(FileRead, OpensCloseOnExec) {
  putFile("/tmp/f", "");
  const auto fd = openRegular("/tmp/f");
  ASSERT_TRUE(fd.ok());
  EXPECT_EQ(::fcntl(fd.value().get(), F_GETFD), FD_CLOEXEC);
}

TEST_F(FileRead, ReportsAReadThatFails) {
  putDirectory("/tmp/dir");
  const UniqueFd directory(::open("/tmp/dir", O_RDONLY | O_CLOEXEC));
  const auto error = readAll(directory.get(), "the directory").error();
  EXPECT_EQ(error.sysErrno, EISDIR);
  EXPECT_EQ(error.message, "read the directory: Is a directory");
}

}  // namespace
}  // namespace kelt::base
