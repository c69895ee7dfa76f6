#include "helper/file_id.h"

#include <sys/stat.h>
#include <unistd.h>

#include "support/private_device.h"

namespace kelt::helper {
namespace {

class FileIdTest : public tests::PrivateDevice {
 protected:
  void SetUp() override {
    PrivateDevice::SetUp();
    tests::putFile("/tmp/d/file", "content");
    tests::putFile("/tmp/d/copy", "content");
  }
};

TEST_F(FileIdTest, KnowsAFileUnderEveryName) {
  ASSERT_EQ(::symlink("d/file", "/tmp/link"), 0);
  ASSERT_EQ(::symlink("d", "/tmp/e"), 0);
  ASSERT_EQ(::link("/tmp/d/file", "/tmp/hard"), 0);
  for (const char* name : {"/tmp/d/file", "/tmp//d/../d/file", "/tmp/link", "/tmp/e/file", "/tmp/hard"})
    EXPECT_TRUE(bOneFile("/tmp/d/file", name)) << name;
  EXPECT_TRUE(bOneFile("/tmp/d", "/tmp/e/"));
}

TEST_F(FileIdTest, TellsFilesOfTheSameContentApart) {
  EXPECT_FALSE(bOneFile("/tmp/d/file", "/tmp/d/copy"));
  EXPECT_FALSE(bOneFile("/tmp/d", "/tmp"));
}

TEST_F(FileIdTest, HasNoneForWhatIsNotThere) {
  ASSERT_EQ(::symlink("/tmp/missing", "/tmp/dangling"), 0);
  for (const char* path : {"", "/tmp/missing", "/tmp/dangling", "/tmp/d/file/"}) {
    EXPECT_FALSE(fileIdOf(path).has_value()) << path;
    EXPECT_FALSE(bOneFile(path, path)) << path;
  }
}

TEST_F(FileIdTest, DoesNotWaitForTheOtherEndOfAPipe) {
  ASSERT_EQ(::mkfifo("/tmp/pipe", 0600), 0);
  EXPECT_TRUE(bOneFile("/tmp/pipe", "/tmp/pipe"));
}

}  // namespace
}  // namespace kelt::helper
