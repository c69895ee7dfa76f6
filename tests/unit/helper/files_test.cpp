#include "helper/files.h"

#include <unistd.h>

#include "support/private_device.h"

namespace kelt::helper {
namespace {

// A name that is no UTF-8 makes the round trip like any other.
constexpr const char* kFile = "/tmp/d/file-\xC3\xA9-\xFF";

class Files : public tests::PrivateDevice {
 protected:
  void SetUp() override {
    PrivateDevice::SetUp();
    tests::putFile(kFile, "content");
    ASSERT_EQ(::symlink("loop", "/tmp/loop"), 0);
  }
};

TEST_F(Files, AreThereAbsentOrNotKnown) {
  for (const auto presence : {presenceOf, presenceForReading}) {
    EXPECT_EQ(presence(kFile), Presence::kThere);
    EXPECT_EQ(presence("/tmp/d"), Presence::kThere);
    EXPECT_EQ(presence("/tmp/d/missing"), Presence::kAbsent);
    EXPECT_EQ(presence("/tmp/loop"), Presence::kUnknown);
  }
}

TEST_F(Files, HaveSizeAndContentWhereTheyAreRegular) {
  EXPECT_EQ(sizeOf(kFile), 7U);
  const auto content = contentOf(kFile);
  ASSERT_TRUE(content.has_value());
  EXPECT_EQ(std::string(content->span().begin(), content->span().end()), "content");
  for (const char* path : {"/tmp/d", "/tmp/d/missing", "/tmp/loop"}) {
    EXPECT_FALSE(sizeOf(path).has_value()) << path;
    EXPECT_FALSE(contentOf(path).has_value()) << path;
  }
}

TEST_F(Files, AreCopiedAndDeleted) {
  EXPECT_TRUE(copyFile(kFile, "/tmp/copy"));
  EXPECT_EQ(tests::contentOf("/tmp/copy"), "content");
  EXPECT_FALSE(copyFile("/tmp/d/missing", "/tmp/copy"));
  EXPECT_EQ(tests::contentOf("/tmp/copy"), "content");
  EXPECT_TRUE(deleteFile(kFile));
  EXPECT_EQ(tests::namesIn("/tmp/d"), std::vector<std::string>{});
  EXPECT_FALSE(deleteFile(kFile));
  EXPECT_FALSE(deleteFile("/tmp/d"));
}

}  // namespace
}  // namespace kelt::helper
