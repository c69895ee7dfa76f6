#include "helper/owed_start.h"

#include <unistd.h>

#include "support/private_device.h"

namespace kelt::helper {
namespace {

using tests::exists;
using tests::putDirectory;
using tests::putFile;

constexpr const char* kStart = "/run/orv-locks/agent-stopped";
constexpr const char* kPlugIns = "/run/orv-locks/plug-ins-unloaded";

class OwedStart : public tests::PrivateDevice {
 protected:
  void SetUp() override {
    PrivateDevice::SetUp();
    putDirectory("/run/orv-locks", 0700);
  }
};

TEST_F(OwedStart, IsAMarkOfEachKindUntilItIsSettled) {
  owe(Owed::kStart);
  EXPECT_TRUE(bOwed(Owed::kStart));
  EXPECT_FALSE(bOwed(Owed::kPlugIns));
  EXPECT_EQ(tests::modeOf(kStart), 0600U);
  owe(Owed::kPlugIns);
  settle(Owed::kStart);
  EXPECT_FALSE(exists(kStart));
  EXPECT_TRUE(exists(kPlugIns));
  settle(Owed::kPlugIns);
  EXPECT_EQ(tests::namesIn("/run/orv-locks"), std::vector<std::string>());
}

TEST_F(OwedStart, CanBeMarkedAndSettledTwice) {
  owe(Owed::kStart);
  owe(Owed::kStart);
  settle(Owed::kStart);
  settle(Owed::kStart);
  EXPECT_FALSE(bOwed(Owed::kStart));
}

TEST_F(OwedStart, FollowsNoLinkInThePlaceOfTheMark) {
  putFile("/tmp/elsewhere", "kept");
  ASSERT_EQ(::symlink("/tmp/nowhere", kStart), 0);
  owe(Owed::kStart);
  EXPECT_FALSE(exists("/tmp/nowhere"));
  settle(Owed::kStart);
  EXPECT_FALSE(exists(kStart));
}

TEST_F(OwedStart, IsDoneWithoutWhereThereIsNoDirectoryForIt) {
  ASSERT_EQ(::rmdir("/run/orv-locks"), 0);
  owe(Owed::kStart);
  EXPECT_FALSE(bOwed(Owed::kStart));
  settle(Owed::kStart);
}

}  // namespace
}  // namespace kelt::helper
