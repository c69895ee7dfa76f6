#include "platform/astring.h"

#include <array>
#include <bit>
#include <cstdint>
#include <gtest/gtest.h>

namespace kelt::tests {
namespace {

using quorvane_com::orv::isBigEndian;
using quorvane_com::orv::tellcomn_ansi_to_wide;
using quorvane_com::orv::tellcomn_wide_to_ansi;

TEST(Text, WideBecomesUtf8) {
  EXPECT_EQ(tellcomn_wide_to_ansi(L"a\u00E9\u20AC\U0001F600"), "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80");
  EXPECT_EQ(tellcomn_wide_to_ansi(L""), "");
}

TEST(Text, Utf8BecomesWide) {
  EXPECT_EQ(tellcomn_ansi_to_wide("a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"), L"a\u00E9\u20AC\U0001F600");
}

TEST(Text, APathThatIsNoUtf8MakesTheRoundTrip) {
  const std::string path = "/tmp/caf\xE9/\xC3\x28\xED\xA0\x80\xFF";
  EXPECT_EQ(tellcomn_wide_to_ansi(tellcomn_ansi_to_wide(path)), path);
  EXPECT_EQ(tellcomn_ansi_to_wide("\xE9"), std::wstring(1, static_cast<wchar_t>(0xDCE9)));
}

TEST(Text, ACharStringConvertsLikeTheRest) {
  EXPECT_EQ(ACharString(L"/tmp/\u00E9").str(), "/tmp/\xC3\xA9");
  EXPECT_STREQ(ACharString(L"/tmp/\u00E9"), "/tmp/\xC3\xA9");
  const std::wstring escaped(1, static_cast<wchar_t>(0xDC80));
  EXPECT_EQ(ACharString(escaped.c_str()).str(), "\x80");
}

TEST(Text, NoTextCountsAsEmpty) {
  EXPECT_EQ(ACharString(nullptr).str(), "");
  EXPECT_TRUE(AString(nullptr).empty());
  EXPECT_EQ(AString(L"text").str(), L"text");
  EXPECT_STREQ(AString(std::wstring(L"text")), L"text");
}

TEST(Text, TheByteOrderIsThatOfTheMachine) {
  const auto bytes = std::bit_cast<std::array<unsigned char, 4>>(std::uint32_t{0x01020304});
  EXPECT_EQ(isBigEndian(), bytes[0] == 1);
}

}  // namespace
}  // namespace kelt::tests
