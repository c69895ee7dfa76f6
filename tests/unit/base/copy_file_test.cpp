#include <sys/stat.h>
#include <unistd.h>

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

TEST_F(CopyFile, LeavesAFileThatIsCopiedToItselfAsItWas) {
  putFile("/tmp/from", "content", 0640);
  ASSERT_TRUE(copyFile("/tmp/from", "/tmp/from").ok());
  EXPECT_EQ(contentOf("/tmp/from"), "content");
  EXPECT_EQ(modeOf("/tmp/from"), 0640U);
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
