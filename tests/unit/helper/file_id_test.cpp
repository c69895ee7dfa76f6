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
  for (const wchar_t* name : {L"/tmp/d/file", L"/tmp//d/../d/file", L"/tmp/link", L"/tmp/e/file", L"/tmp/hard"})
    EXPECT_TRUE(bOneFile(L"/tmp/d/file", name)) << name;
  EXPECT_TRUE(bOneFile(L"/tmp/d", L"/tmp/e/"));
}

TEST_F(FileIdTest, TellsFilesOfTheSameContentApart) {
  EXPECT_FALSE(bOneFile(L"/tmp/d/file", L"/tmp/d/copy"));
  EXPECT_FALSE(bOneFile(L"/tmp/d", L"/tmp"));
}

TEST_F(FileIdTest, HasNoneForWhatIsNotThere) {
  ASSERT_EQ(::symlink("/tmp/missing", "/tmp/dangling"), 0);
  for (const wchar_t* path : {L"", L"/tmp/missing", L"/tmp/dangling", L"/tmp/d/file/"}) {
    EXPECT_FALSE(fileIdOf(path).has_value()) << path;
    EXPECT_FALSE(bOneFile(path, path)) << path;
  }
}

TEST_F(FileIdTest, DoesNotWaitForTheOtherEndOfAPipe) {
  ASSERT_EQ(::mkfifo("/tmp/pipe", 0600), 0);
  EXPECT_TRUE(bOneFile(L"/tmp/pipe", L"/tmp/pipe"));
}

}  // namespace
}  // namespace kelt::helper
