#include "base/hex.h"

#include <gtest/gtest.h>
#include <vector>

namespace kelt::base {
namespace {

const std::vector<unsigned char> kBytes{0x00, 0x0A, 0x7F, 0x80, 0xFF};

TEST(HexDigits, AreTwoUpperCaseOnesForEveryByte) {
  EXPECT_EQ(hexDigits(kBytes), "000A7F80FF");
  EXPECT_EQ(hexDigits({}), "");
}

TEST(HexDigits, CanHaveSomethingBetweenTheBytes) {
  EXPECT_EQ(hexDigits(kBytes, ":"), "00:0A:7F:80:FF");
  EXPECT_EQ(hexDigits(std::vector<unsigned char>{0x5C}, ":"), "5C");
}

}  // namespace
}  // namespace kelt::base
