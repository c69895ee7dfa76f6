#include "keys/hex_hash.h"

#include <gtest/gtest.h>

namespace kelt::keys {
namespace {

ABuffer bytesOf(const std::string& text) {
  return ABuffer({reinterpret_cast<const unsigned char*>(text.data()), text.size()});
}

TEST(HexHash, IsSha256) {
  HexHash hash;
  ASSERT_TRUE(hash.bReady());
  EXPECT_EQ(hash.of(bytesOf("abc")), "BA7816BF8F01CFEA414140DE5DAE2223B00361A396177A9CB410FF61F20015AD");
  EXPECT_EQ(hash.of(bytesOf("")), "E3B0C44298FC1C149AFBF4C8996FB92427AE41E4649B934CA495991B7852B855");
}

}  // namespace
}  // namespace kelt::keys
