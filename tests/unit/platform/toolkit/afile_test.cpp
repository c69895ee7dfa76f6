#include "platform/afile.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/private_device.h"

#include "base/unique_fd.h"

namespace kelt::tests {
namespace {

class File : public PrivateDevice {};

ABuffer bufferOf(const std::string& text) {
  return ABuffer({reinterpret_cast<const unsigned char*>(text.data()), text.size()});
}

std::string textOf(const ABuffer& buffer) {
  return {buffer.span().begin(), buffer.span().end()};
}

TEST_F(File, ReadsAWholeFileUnderBothNames) {
  const std::string content("one\0two\xFF", 8);
  putFile("/tmp/f", content);
  ABuffer existing;
  ABuffer tried;
  EXPECT_TRUE(AFile::readExisting(L"/tmp/f", existing));
  EXPECT_TRUE(AFile::tryRead(L"/tmp/f", tried));
  EXPECT_EQ(textOf(existing), content);
  EXPECT_EQ(textOf(tried), content);
}

TEST_F(File, PutsAnUncountedZeroAfterTheContent) {
  putFile("/tmp/f", "text");
  ABuffer content;
  ASSERT_TRUE(AFile::readExisting(L"/tmp/f", content));
  EXPECT_EQ(content.length(), 4U);
  EXPECT_STREQ(reinterpret_cast<const char*>(content.data()), "text");
}

TEST_F(File, ReadsAnEmptyFile) {
  putFile("/tmp/f", "");
  ABuffer content = bufferOf("before");
  ASSERT_TRUE(AFile::tryRead(L"/tmp/f", content));
  EXPECT_EQ(content.length(), 0U);
  EXPECT_EQ(content.data()[0], 0);
}

TEST_F(File, LeavesTheBufferWhenItCannotRead) {
  ASSERT_EQ(::mkfifo("/tmp/fifo", 0600), 0);
  for (const wchar_t* path : {L"/tmp/none", L"/tmp", L"/tmp/fifo"}) {
    ABuffer content = bufferOf("before");
    EXPECT_FALSE(AFile::readExisting(path, content));
    EXPECT_FALSE(AFile::tryRead(path, content));
    EXPECT_EQ(textOf(content), "before");
  }
}

TEST_F(File, WritesANewFileForItsOwnerOnly) {
  EXPECT_TRUE(AFile::write(L"/tmp/f", bufferOf("new")));
  EXPECT_EQ(contentOf("/tmp/f"), "new");
  EXPECT_EQ(modeOf("/tmp/f"), 0600U);
}

TEST_F(File, ReplacesAFileAndKeepsItsMode) {
  putFile("/tmp/f", "a longer content", 0644);
  EXPECT_TRUE(AFile::write(L"/tmp/f", bufferOf("new")));
  EXPECT_EQ(contentOf("/tmp/f"), "new");
  EXPECT_EQ(modeOf("/tmp/f"), 0644U);
}

TEST_F(File, WritesWithoutTheUncountedZero) {
  putFile("/tmp/f", "text");
  ABuffer content;
  ASSERT_TRUE(AFile::readExisting(L"/tmp/f", content));
  ASSERT_TRUE(AFile::write(L"/tmp/copy", content));
  EXPECT_EQ(contentOf("/tmp/copy"), "text");
  ASSERT_TRUE(AFile::write(L"/tmp/empty", ABuffer()));
  EXPECT_EQ(contentOf("/tmp/empty"), "");
}

TEST_F(File, ReportsAWriteThatFailsAndLeavesTheFile) {
  mountSmall("/tmp/small", 64 * 1024);
  putFile("/tmp/small/f", "old");
  EXPECT_FALSE(AFile::write(L"/tmp/small/f", bufferOf(std::string(200'000, 'x'))));
  EXPECT_EQ(contentOf("/tmp/small/f"), "old");
  EXPECT_FALSE(AFile::write(L"/tmp", bufferOf("x")));
  EXPECT_FALSE(AFile::write(L"/tmp/none/f", bufferOf("x")));
}

TEST_F(File, OpenAlwaysMakesAnEmptyFileForItsOwnerOnly) {
  for (const mode_t mask : {0U, 0277U}) {
    const mode_t before = ::umask(mask);
    AFile file;
    EXPECT_TRUE(file.openAlways(L"/tmp/f"));
    file.close();
    ::umask(before);
    EXPECT_EQ(contentOf("/tmp/f"), "");
    EXPECT_EQ(modeOf("/tmp/f"), 0600U);
    ::unlink("/tmp/f");
  }
}

TEST_F(File, OpenAlwaysKeepsWhatIsThere) {
  putFile("/tmp/f", "kept", 0644);
  AFile file;
  EXPECT_TRUE(file.openAlways(L"/tmp/f"));
  file.close();
  EXPECT_EQ(contentOf("/tmp/f"), "kept");
  EXPECT_EQ(modeOf("/tmp/f"), 0644U);
}

TEST_F(File, OpenWriteCutsOffOnlyWhenAsked) {
  putFile("/tmp/f", "content");
  AFile file;
  EXPECT_TRUE(file.openWrite(L"/tmp/f", false));
  EXPECT_EQ(contentOf("/tmp/f"), "content");
  EXPECT_TRUE(file.openWrite(L"/tmp/f", true));
  EXPECT_EQ(contentOf("/tmp/f"), "");
}

TEST_F(File, OpensNothingButARegularFile) {
  putFile("/tmp/f", "kept");
  putDirectory("/tmp/d");
  ASSERT_EQ(::symlink("f", "/tmp/link"), 0);
  ASSERT_EQ(::symlink("made", "/tmp/dangling"), 0);
  ASSERT_EQ(::mkfifo("/tmp/fifo", 0600), 0);
  for (const wchar_t* path : {L"/tmp/d", L"/tmp/link", L"/tmp/dangling", L"/tmp/fifo", L"/dev/null", L"/tmp/none/f"}) {
    AFile file;
    EXPECT_FALSE(file.openWrite(path, true)) << ACharString(path).str();
    EXPECT_FALSE(file.openAlways(path)) << ACharString(path).str();
  }
  EXPECT_EQ(contentOf("/tmp/f"), "kept");
  EXPECT_FALSE(exists("/tmp/made"));
}

TEST_F(File, DoesNotEvenOpenWhatIsNoFile) {
  ASSERT_EQ(::mkfifo("/tmp/fifo", 0600), 0);
  const kelt::base::UniqueFd reader(::open("/tmp/fifo", O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  AFile file;
  EXPECT_FALSE(file.openAlways(L"/tmp/fifo"));
  pollfd heard{reader.get(), POLLIN, 0};
  EXPECT_EQ(::poll(&heard, 1, 0), 0) << "a reader hears of a writer that comes and goes";
}

TEST_F(File, ClosesWhatIsNotOpen) {
  AFile file;
  file.close();
  file.close();
  EXPECT_TRUE(file.openAlways(L"/tmp/f"));
}

}  // namespace
}  // namespace kelt::tests
