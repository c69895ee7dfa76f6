#include "base/utf.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <random>

namespace kelt::base {
namespace {

std::wstring units(std::initializer_list<std::uint32_t> values) {
  std::wstring text;
  for (const std::uint32_t value : values)
    text.push_back(static_cast<wchar_t>(value));
  return text;
}

TEST(ToWide, DecodesSequencesOfEveryLength) {
  EXPECT_EQ(toWide("A\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"), units({0x41, 0xE9, 0x20AC, 0x1F600}));
}

TEST(ToWide, DecodesTheFirstAndTheLastOfEveryLength) {
  EXPECT_EQ(toWide(std::string_view("\0\x7F", 2)), units({0, 0x7F}));
  EXPECT_EQ(toWide("\xC2\x80\xDF\xBF"), units({0x80, 0x7FF}));
  EXPECT_EQ(toWide("\xE0\xA0\x80\xEF\xBF\xBF"), units({0x800, 0xFFFF}));
  EXPECT_EQ(toWide("\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"), units({0x10000, 0x10FFFF}));
}

TEST(ToWide, KeepsTheNeighboursOfTheSurrogates) {
  EXPECT_EQ(toWide("\xED\x9F\xBF\xEE\x80\x80"), units({0xD7FF, 0xE000}));
}

TEST(ToWide, EscapesEachByteOfASurrogate) {
  EXPECT_EQ(toWide("\xED\xA0\x80"), units({0xDCED, 0xDCA0, 0xDC80}));
  EXPECT_EQ(toWide("\xED\xBF\xBF"), units({0xDCED, 0xDCBF, 0xDCBF}));
}

TEST(ToWide, EscapesOverlongForms) {
  EXPECT_EQ(toWide("\xC0\xAF"), units({0xDCC0, 0xDCAF}));
  EXPECT_EQ(toWide("\xC1\xBF"), units({0xDCC1, 0xDCBF}));
  EXPECT_EQ(toWide("\xE0\x9F\xBF"), units({0xDCE0, 0xDC9F, 0xDCBF}));
  EXPECT_EQ(toWide("\xF0\x8F\xBF\xBF"), units({0xDCF0, 0xDC8F, 0xDCBF, 0xDCBF}));
}

TEST(ToWide, EscapesWhatIsBeyondTheLastCodePoint) {
  EXPECT_EQ(toWide("\xF4\x90\x80\x80"), units({0xDCF4, 0xDC90, 0xDC80, 0xDC80}));
  EXPECT_EQ(toWide("\xF8\xFF"), units({0xDCF8, 0xDCFF}));
}

TEST(ToWide, EscapesALoneByteAndGoesOnAfterIt) {
  EXPECT_EQ(toWide("a\xE9z"), units({'a', 0xDCE9, 'z'}));
  EXPECT_EQ(toWide("\x80"
                   "b"),
            units({0xDC80, 'b'}));
}

TEST(ToWide, EscapesASequenceThatEndsTooEarly) {
  EXPECT_EQ(toWide("\xE2\x82"), units({0xDCE2, 0xDC82}));
  EXPECT_EQ(toWide("\xE2\x82"
                   "A"),
            units({0xDCE2, 0xDC82, 'A'}));
  EXPECT_EQ(toWide("\xE2\xC3\xA9"), units({0xDCE2, 0xE9}));
}

TEST(ToUtf8, EncodesEveryLength) {
  EXPECT_EQ(toUtf8(units({0x7F, 0x80, 0x7FF, 0x800, 0xFFFF, 0x10000, 0x10FFFF})),
            "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF\xF0\x90\x80\x80\xF4\x8F\xBF\xBF");
}

TEST(ToUtf8, KeepsZeroUnits) {
  EXPECT_EQ(toUtf8(units({'a', 0, 'b'})), std::string("a\0b", 3));
}

TEST(ToUtf8, TurnsAnEscapedByteIntoThatByte) {
  EXPECT_EQ(toUtf8(units({0xDC80, 0xDCFF})), "\x80\xFF");
}

TEST(ToUtf8, LeavesOtherSurrogatesVisiblyInvalid) {
  EXPECT_EQ(toUtf8(units({0xDC7F})), "\xED\xB1\xBF");
  EXPECT_EQ(toUtf8(units({0xDD00})), "\xED\xB4\x80");
  EXPECT_EQ(toUtf8(units({0xD800})), "\xED\xA0\x80");
}

TEST(ToUtf8, LeavesValuesBeyondTheLastCodePointVisiblyInvalid) {
  EXPECT_EQ(toUtf8(units({0x110000})), "\xF4\x90\x80\x80");
  EXPECT_EQ(toUtf8(units({0x1FFFFF})), "\xF7\xBF\xBF\xBF");
}

TEST(ToUtf8, ReplacesWhatFourBytesCannotHold) {
  EXPECT_EQ(toUtf8(units({0x200000})), "\xEF\xBF\xBD");
  EXPECT_EQ(toUtf8(units({0xFFFFFFFF})), "\xEF\xBF\xBD");
}

TEST(ToUtf8, GivesBackWhateverBytesToWideTook) {
  std::mt19937 random(20240229);  // fixed, so that a failure can be repeated
  // Lead and continuation bytes often enough to form sequences, right and wrong ones.
  constexpr std::string_view kBytes(
      "\x00"
      "A\x7F\x80\x8F\x90\xA0\xBF\xC0\xC2\xDF\xE0\xED\xEF\xF0\xF4\xF5\xFF",
      18);
  for (int round = 0; round < 20'000; ++round) {
    std::string bytes;
    for (auto length = random() % 9; length > 0; --length)
      bytes.push_back(kBytes[random() % kBytes.size()]);
    ASSERT_EQ(toUtf8(toWide(bytes)), bytes);
  }
}

TEST(ToWide, GivesBackTheCodePointsThatToUtf8Took) {
  for (std::uint32_t value = 0; value <= 0x10FFFF; value += 13) {
    if (value >= 0xD800 && value <= 0xDFFF) continue;
    ASSERT_EQ(toWide(toUtf8(units({value}))), units({value}));
  }
}

}  // namespace
}  // namespace kelt::base
