#include "xml/encoding.h"

#include <array>
#include <gtest/gtest.h>
#include <span>
#include <string>
#include <string_view>
#include <utility>

namespace kelt::platform {
namespace {

using std::string_literals::operator""s;

std::span<const unsigned char> bytesOf(const std::string& text) {
  return {reinterpret_cast<const unsigned char*>(text.data()), text.size()};
}

std::string fromUtf16(const std::string& document) {
  const auto utf8 = utf8OfUtf16(bytesOf(document));
  return {utf8.begin(), utf8.end()};
}

std::string fromLatin1(const std::string& document) {
  const auto utf8 = utf8OfLatin1(bytesOf(document));
  return {utf8.begin(), utf8.end()};
}

TEST(XmlEncoding, IsUtf16FromItsMarkOn) {
  for (const auto& [first, second] : {std::pair{0xFE, 0xFF}, std::pair{0xFF, 0xFE}}) {
    const std::array<unsigned char, 2> mark = {static_cast<unsigned char>(first), static_cast<unsigned char>(second)};
    EXPECT_TRUE(bMarkedUtf16(mark));
    EXPECT_FALSE(bMarkedUtf16(std::span(mark).first(1)));
  }
}

TEST(XmlEncoding, ConvertsUtf16InTheByteOrderOfItsMarkAndTheMarkToo) {
  EXPECT_EQ(fromUtf16("\xFE\xFF"), "\xEF\xBB\xBF");
  EXPECT_EQ(fromUtf16("\xFF\xFE"), "\xEF\xBB\xBF");
  EXPECT_EQ(fromUtf16("\xFE\xFF\0<\0a\x20\xAC"s), "\xEF\xBB\xBF<a\xE2\x82\xAC");
  EXPECT_EQ(fromUtf16("\xFF\xFE<\0a\0\xAC\x20"s), "\xEF\xBB\xBF<a\xE2\x82\xAC");
}

TEST(XmlEncoding, JoinsSurrogatesThatAreAPair) {
  EXPECT_EQ(fromUtf16("\xFE\xFF\xD8\x00\xDC\x00"s), "\xEF\xBB\xBF\xF0\x90\x80\x80");
  EXPECT_EQ(fromUtf16("\xFE\xFF\xDB\xFF\xDF\xFF"), "\xEF\xBB\xBF\xF4\x8F\xBF\xBF");
}

TEST(XmlEncoding, MakesOfALoneSurrogateBytesThatNoUtf8Holds) {
  EXPECT_EQ(fromUtf16("\xFE\xFF\xD8\x3D"), "\xEF\xBB\xBF\xED\xA0\xBD") << "at the end";
  EXPECT_EQ(fromUtf16("\xFE\xFF\xD8\x3D\0a"s), "\xEF\xBB\xBF\xED\xA0\xBD"s + "a");
  EXPECT_EQ(fromUtf16("\xFE\xFF\xDE\x00\xD8\x3D"s), "\xEF\xBB\xBF\xED\xB8\x80\xED\xA0\xBD") << "the wrong way round";
}

TEST(XmlEncoding, ConvertsEveryCharacterOfLatin1) {
  EXPECT_EQ(fromLatin1(""), "");
  EXPECT_EQ(fromLatin1("\0a\x7F"s), "\0a\x7F"s);
  EXPECT_EQ(fromLatin1("\x80\xA0\xBF\xC0\xFF"), "\xC2\x80\xC2\xA0\xC2\xBF\xC3\x80\xC3\xBF");
}

}  // namespace
}  // namespace kelt::platform
