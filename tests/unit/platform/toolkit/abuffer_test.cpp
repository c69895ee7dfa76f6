#include "platform/abuffer.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <string>
#include <utility>

namespace kelt::tests {
namespace {

ABuffer bufferOf(const std::string& text) {
  return ABuffer({reinterpret_cast<const unsigned char*>(text.data()), text.size()});
}

TEST(Buffer, HasAnUncountedZeroAfterItsContent) {
  const ABuffer buffer = bufferOf("key");
  EXPECT_EQ(buffer.length(), 3U);
  EXPECT_EQ(buffer.data()[3], 0);
  const ABuffer empty = bufferOf("");
  EXPECT_EQ(empty.length(), 0U);
  EXPECT_EQ(empty.data()[0], 0);
}

TEST(Buffer, WithoutAContentHasNoData) {
  ABuffer none;
  EXPECT_EQ(none.length(), 0U);
  EXPECT_EQ(none.data(), nullptr);
  EXPECT_TRUE(none.span().empty());
  ABuffer before = bufferOf("key");
  none = std::move(before);
  EXPECT_EQ(before.data(), nullptr);  // NOLINT(bugprone-use-after-move): what is promised of it
}

TEST(Buffer, AllocatesZeros) {
  ABuffer buffer = bufferOf("key");
  ASSERT_TRUE(buffer.allocate(5));
  EXPECT_EQ(buffer.length(), 5U);
  for (std::size_t i = 0; i <= 5; ++i)
    EXPECT_EQ(buffer.data()[i], 0) << i;
}

TEST(Buffer, IsEmptyWhereThereIsNoMemory) {
  ABuffer buffer = bufferOf("key");
  EXPECT_FALSE(buffer.allocate(SIZE_MAX / 2));
  EXPECT_EQ(buffer.length(), 0U);
  EXPECT_EQ(buffer.data(), nullptr);
}

TEST(Buffer, WipesWhatItDropsWhenItIsShortened) {
  AnObjectBuffer<std::uint16_t> buffer;
  ASSERT_TRUE(buffer.allocate(4));
  for (std::size_t i = 0; i < 4; ++i)
    buffer.data()[i] = 0x1234;
  buffer.shorten(1);
  EXPECT_EQ(buffer.length(), 1U);
  // The block is still as large as it was.
  const volatile std::uint16_t* const block = buffer.data();
  EXPECT_EQ(block[0], 0x1234);
  for (std::size_t i = 1; i <= 4; ++i)
    EXPECT_EQ(block[i], 0) << i;
}

}  // namespace
}  // namespace kelt::tests
