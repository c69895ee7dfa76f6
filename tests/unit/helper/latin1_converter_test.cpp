#include "helper/latin1_converter.h"

#include <array>
#include <gtest/gtest.h>
#include <string>

namespace kelt::helper {
namespace {

TEST(Latin1Converter, ConvertsEveryByteAndTellsHowManyItMade) {
  std::string latin1(256, '\0');
  for (std::size_t code = 0; code < latin1.size(); ++code)
    latin1[code] = static_cast<char>(static_cast<unsigned char>(code));
  std::array<char, 384> utf8{};
  EXPECT_EQ(Latin1Converter("UTF8").convert(latin1, utf8), utf8.size());
  EXPECT_EQ(std::string(utf8.data(), 128), latin1.substr(0, 128));
  EXPECT_EQ(std::string(utf8.data() + 128, 2), "\xC2\x80");
  EXPECT_EQ(std::string(utf8.data() + 382, 2), "\xC3\xBF");
}

TEST(Latin1Converter, GivesNothingWithoutRoomAndConvertsTheNextText) {
  Latin1Converter converter("UTF8");
  std::array<char, 3> utf8{};
  EXPECT_FALSE(converter.convert(std::string("a\xE9\xE9"), utf8).has_value());
  EXPECT_EQ(std::string(utf8.data(), 3), "a\xC3\xA9") << "what had been converted by then";
  EXPECT_EQ(converter.convert(std::string("b"), utf8), 1U);
  EXPECT_EQ(utf8[0], 'b');
}

TEST(Latin1Converter, GivesNothingWhereTheSystemHasNoSuchConversion) {
  std::array<char, 3> out{};
  EXPECT_FALSE(Latin1Converter("NO-SUCH-ENCODING").convert(std::string("a"), out).has_value());
}

}  // namespace
}  // namespace kelt::helper
