// What holds on 32-bit big-endian PowerPC and cannot go wrong on the machines that the tool is developed on.

#include <climits>
#include <cstddef>
#include <cstdint>
#include <curl/curl.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <iconv.h>
#include <openssl/asn1.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <termios.h>
#include <type_traits>
#include <unistd.h>
#include <vector>

#include "support/private_device.h"

#include "helper/encoding.h"
#include "platform/afile.h"
#include "platform/astring.h"
#include "platform/registry.h"

namespace kelt::tests {
namespace {

static_assert(CHAR_MIN == 0, "char is unsigned");
static_assert(std::is_signed_v<wchar_t> && sizeof(wchar_t) == 4 && sizeof(long) == 4 && sizeof(void*) == 4);
static_assert(sizeof(off_t) == 8 && sizeof(ino_t) == 8 && sizeof(time_t) == 8);

/// The bytes of an object, as they are in memory.
template <typename T>
std::string bytesOf(const T& object) {
  return {reinterpret_cast<const char*>(&object), sizeof object};
}

TEST(Target, IsBigEndian) {
  EXPECT_EQ(bytesOf(std::uint32_t{0x01020304}), "\x01\x02\x03\x04");
  EXPECT_TRUE(quorvane_com::orv::isBigEndian());
}

TEST(Target, HasTheTerminalRecordsAndCallsOfItsKernel) {
  EXPECT_EQ(sizeof(termio), 20U);
  EXPECT_EQ(offsetof(termio, c_lflag), 6U);
  EXPECT_EQ(offsetof(termio, c_line), 8U);
  EXPECT_EQ(offsetof(termio, c_cc), 9U);
  EXPECT_EQ(sizeof(termio::c_cc), 10U);
  EXPECT_EQ(TCGETA, 0x40147417U);
  EXPECT_EQ(TCSETA, 0x80147418U);
  EXPECT_EQ(TCSETAW, 0x80147419U);
  EXPECT_EQ(ECHOE, 0x2U);
  EXPECT_EQ(ECHOK, 0x4U);
  EXPECT_EQ(ECHO, 0x8U);
  EXPECT_EQ(ECHONL, 0x10U);
  EXPECT_EQ(CREAD, 0x800U);
}

TEST(Target, StoresWideCharactersMostSignificantByteFirst) {
  const std::wstring wide = helper::latin1_to_unicode("A\xe9");
  ASSERT_EQ(wide.size(), 2U);
  EXPECT_EQ(bytesOf(wide[0]), std::string("\0\0\0A", 4));
  EXPECT_EQ(bytesOf(wide[1]), std::string("\0\0\0\xe9", 4));
}

TEST(Target, ConvertsToItsOwnWideCharactersInTheOrderThatTheToolAsksFor) {
  const iconv_t converter = ::iconv_open("UCS-4BE", "ISO-8859-1");
  ASSERT_NE(converter, reinterpret_cast<iconv_t>(-1));
  std::string latin1 = "\xe9";
  wchar_t wide = 0;
  char* from = latin1.data();
  auto* to = reinterpret_cast<char*>(&wide);
  std::size_t left = 1;
  std::size_t room = sizeof wide;
  EXPECT_EQ(::iconv(converter, &from, &left, &to, &room), 0U);
  EXPECT_EQ(wide, L'\u00e9');
  EXPECT_EQ(::iconv_close(converter), 0);
}

TEST(Target, KeepsWideCharactersBeyondSixteenBits) {
  const std::string narrow = "\xf4\x8f\xbf\xbf \xe2\x82\xac";
  const std::wstring wide = quorvane_com::orv::tellcomn_ansi_to_wide(narrow);
  EXPECT_EQ(wide, L"\U0010ffff \u20ac");
  EXPECT_EQ(quorvane_com::orv::tellcomn_wide_to_ansi(wide), narrow);
}

using TargetDevice = PrivateDevice;

TEST_F(TargetDevice, GivesRegistryNumbersInItsOwnOrder) {
  putFile("/opt/registry.ini", "[SOFTWARE\\Tellwick\\Zentor\\Agent]\nSize=dword:0000010e\n");
  ASSERT_EQ(InitializeRegistry(L"/opt/registry.ini"), 0);
  void* key = nullptr;
  ASSERT_EQ(RegOpenKey(HKEY_LOCAL_MACHINE, "SOFTWARE\\Tellwick\\Zentor\\Agent", &key), 0);
  std::uint32_t type = 5;
  std::uint32_t number = 0;
  std::uint32_t size = sizeof number;
  EXPECT_EQ(RegQueryValueEx(key, "Size", nullptr, &type, reinterpret_cast<unsigned char*>(&number), &size), 0);
  EXPECT_EQ(bytesOf(number), std::string("\0\0\1\x0e", 4));
  EXPECT_EQ(number, 270U);
  EXPECT_EQ(RegCloseKey(key), 0);
}

TEST_F(TargetDevice, MeasuresFilesOfMoreThanFourGigabytes) {
  constexpr off_t kSize = 0x1'4000'0001;
  putFile("/tmp/large", "");
  ASSERT_EQ(::truncate("/tmp/large", kSize), 0);
  std::uint64_t size = 0;
  EXPECT_TRUE(AFiler::tryGetFileSize(L"/tmp/large", size));
  EXPECT_EQ(size, 0x1'4000'0001U);
}

TEST_F(TargetDevice, KnowsTimesAfter2038) {
  putFile("/tmp/later", "");
  const timespec times[2] = {{4102444800, 0}, {4102444800, 0}};
  ASSERT_EQ(::utimensat(AT_FDCWD, "/tmp/later", times, 0), 0);
  struct stat info {};
  ASSERT_EQ(::stat("/tmp/later", &info), 0);
  EXPECT_EQ(info.st_mtime, 4102444800);
}

TEST(Target, SharesItsSizesOfTimesAndOffsetsWithItsLibraries) {
  ASN1_TIME* time = ASN1_TIME_set(nullptr, 4102444800);
  ASSERT_NE(time, nullptr);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(ASN1_STRING_get0_data(time))), "21000101000000Z");
  ASN1_TIME_free(time);
  EXPECT_NE(::curl_version_info(CURLVERSION_NOW)->features & CURL_VERSION_LARGEFILE, 0);
}

TEST(Target, TransfersByHttpAlone) {
  const curl_version_info_data* info = ::curl_version_info(CURLVERSION_NOW);
  std::vector<std::string> protocols;
  for (const char* const* name = info->protocols; *name != nullptr; ++name)
    protocols.emplace_back(*name);
  EXPECT_EQ(protocols, (std::vector<std::string>{"http", "https"}));
  EXPECT_EQ(std::string(info->ssl_version).substr(0, 9), "OpenSSL/3");
}

}  // namespace
}  // namespace kelt::tests
