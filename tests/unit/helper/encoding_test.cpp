#include "helper/encoding.h"

#include <array>
#include <cstdlib>
#include <filesystem>
#include <iconv.h>
#include <sys/mount.h>

#include "support/private_device.h"
#include "unit/helper/limited_memory.h"

namespace kelt::helper {
namespace {

std::int32_t capacityOf(const std::wstring& buffer) {
  return static_cast<std::int32_t>(buffer.size());
}

std::wstring everyByteWidened() {
  std::wstring wide;
  for (int code = 1; code < 256; ++code)
    wide += static_cast<wchar_t>(code);
  return wide;
}

std::string everyByte() {
  std::string bytes;
  for (int code = 1; code < 256; ++code)
    bytes += static_cast<char>(code);
  return bytes;
}

TEST(Latin1ToUnicode, OfNothingIsNothing) {
  EXPECT_EQ(latin1_to_unicode(""), L"");
}

TEST(Latin1ToUnicode, EveryByteBecomesTheCharacterOfItsCode) {
  EXPECT_EQ(latin1_to_unicode("\xff"), L"\u00ff");
  EXPECT_EQ(latin1_to_unicode("\xe9"), L"\u00e9");
  EXPECT_EQ(latin1_to_unicode(everyByte()), everyByteWidened());
}

TEST(Latin1ToUnicode, EndsAtTheFirstZeroByte) {
  EXPECT_EQ(latin1_to_unicode(std::string("ab\0cd", 5)), L"ab");
}

TEST(Latin1ToUnicode, TakesALongText) {
  EXPECT_EQ(latin1_to_unicode(std::string(100000, '\xe4')), std::wstring(100000, L'\u00e4'));
}

TEST(Latin1ToUnicode, WithoutMemoryYieldsNothing) {
  const std::string text(100000, 'a');
  tests::limitBlocks(100000);
  const std::wstring wide = latin1_to_unicode(text);
  tests::limitBlocks(SIZE_MAX);
  EXPECT_EQ(wide, L"");
}

TEST(ConvertLatin1ToUnicode, RefusesNullArguments) {
  std::wstring buffer(4, L'#');
  std::int32_t capacity = 4;
  EXPECT_EQ(convert_latin1_to_unicode(nullptr, buffer.data(), &capacity), 1);
  EXPECT_EQ(convert_latin1_to_unicode("abc", nullptr, &capacity), 1);
  EXPECT_EQ(convert_latin1_to_unicode("abc", buffer.data(), nullptr), 1);
  EXPECT_EQ(buffer, L"####");
  EXPECT_EQ(capacity, 4);
}

TEST(ConvertLatin1ToUnicode, FillsABufferThatJustFitsAndNothingBeyond) {
  std::wstring buffer(5, L'#');
  std::int32_t capacity = 4;
  EXPECT_EQ(convert_latin1_to_unicode("ab\xe9", buffer.data(), &capacity), 0);
  EXPECT_EQ(buffer, std::wstring(L"ab\u00e9\0#", 5));
  EXPECT_EQ(capacity, 4) << "only read";
}

TEST(ConvertLatin1ToUnicode, LeavesABufferThatIsTooSmall) {
  for (std::int32_t capacity : {3, 1, 0, -1, INT32_MIN}) {
    std::wstring buffer(4, L'#');
    const std::int32_t before = capacity;
    EXPECT_EQ(convert_latin1_to_unicode("abc", buffer.data(), &capacity), 0);
    EXPECT_EQ(buffer, L"####") << before;
    EXPECT_EQ(capacity, before);
  }
}

TEST(ConvertLatin1ToUnicode, ConvertsAnEmptyTextToTheTerminator) {
  std::wstring buffer(2, L'#');
  std::int32_t capacity = capacityOf(buffer);
  EXPECT_EQ(convert_latin1_to_unicode("", buffer.data(), &capacity), 0);
  EXPECT_EQ(buffer, std::wstring(L"\0#", 2));
}

/// Hides the modules that iconv takes its conversions from. Only has an effect before their first use in a process.
void hideConversions() {
  for (const auto& entry : std::filesystem::directory_iterator("/usr/lib")) {
    const std::string path = entry.path().string() + "/gconv";
    if (tests::exists(path)) ::mount("none", path.c_str(), "tmpfs", 0, nullptr);
  }
}

/// Exits with 0 when arguments are widened on a device without conversions, with the number of the broken step
/// otherwise.
void widenWithoutConversions() {
  hideConversions();
  if (::iconv_open("UCS-4LE", "ISO-8859-1") != reinterpret_cast<iconv_t>(-1)) std::_Exit(2);
  if (latin1_to_unicode(everyByte()) != everyByteWidened()) std::_Exit(3);
  std::wstring buffer(5, L'#');
  std::int32_t capacity = 4;
  if (convert_latin1_to_unicode("ab\xe9", buffer.data(), &capacity) != 0) std::_Exit(4);
  if (buffer != std::wstring(L"ab\u00e9\0#", 5)) std::_Exit(5);
  std::_Exit(0);
}

TEST(Latin1ToUnicodeDeathTest, WidensOnADeviceWithoutConversions) {
  // A new process each time: this one may have loaded them.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(widenWithoutConversions(), ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace kelt::helper
