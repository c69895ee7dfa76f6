#include "services/registry_file.h"

#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace kelt::platform {
namespace {

base::SecretBytes bytesOf(const std::string& text) {
  return {text.begin(), text.end()};
}

RegistryFile fileOf(const std::string& text) {
  auto file = RegistryFile::parse(bytesOf(text));
  EXPECT_TRUE(file.ok());
  return std::move(file).value();
}

std::string textOf(const RegistryFile& file) {
  const base::SecretBytes content = file.content();
  return {content.begin(), content.end()};
}

/// The value "v" of section "[k]" in hexadecimal with its type, or what is wrong with it.
std::string valueIn(const std::string& text) {
  const auto value = fileOf(text).find("k", "v");
  if (!value) return value.error().kind == base::ErrorKind::kNotFound ? "not found" : "malformed";
  if (value.value().type == kRegistryNumber) {
    std::uint32_t number = 0;
    EXPECT_EQ(value.value().bytes.size(), sizeof(number));
    std::memcpy(&number, value.value().bytes.data(), sizeof(number));
    return "number " + std::to_string(number);
  }
  std::string out = "bytes";
  for (const unsigned char byte : value.value().bytes)
    out += " " + std::to_string(byte);
  return out;
}

TEST(RegistryFile, ReadsNumbersOfExactlyEightDigits) {
  EXPECT_EQ(valueIn("[k]\nv=dword:0000010e\n"), "number 270");
  EXPECT_EQ(valueIn("[k]\nv=DWORD:FFFFffff"), "number 4294967295");
  EXPECT_EQ(valueIn("[k]\r\n  v\t= dword:00000000 \r\n"), "number 0");
  for (const char* bad : {"", "10e", "0000010", "00000010e", "0000010g", "0x00010e", " 0000010", "0000 010", "+0000010",
                          "0000010e ; no comment", "0000010e\\"}) {
    EXPECT_EQ(valueIn(std::string("[k]\nv=dword:") + bad + "\n"), "malformed") << bad;
  }
}

TEST(RegistryFile, ReadsBytes) {
  EXPECT_EQ(valueIn("[k]\nv=hex:30,82,00,fF\n"), "bytes 48 130 0 255");
  EXPECT_EQ(valueIn("[k]\nv=HEX:07"), "bytes 7");
  EXPECT_EQ(valueIn("[k]\nv=hex:\n"), "bytes");
  EXPECT_EQ(valueIn("[k]\r\nv = hex: 30 , 82,\t00 \r\n"), "bytes 48 130 0");
  for (const char* bad : {"3", "30,", ",30", "30,,82", "3082", "30 82", "30;82", "0x30", "30,8", "30,8g", "30,082",
                          "30\\", "30,\\", "30,\\82", "\\", "30 ; no comment"}) {
    EXPECT_EQ(valueIn(std::string("[k]\nv=hex:") + bad + "\n"), "malformed") << bad;
  }
}

TEST(RegistryFile, ReadsBytesOverSeveralLines) {
  EXPECT_EQ(valueIn("[k]\nv=hex:30,82,\\\n  01,02\nw=dword:00000001\n"), "bytes 48 130 1 2");
  EXPECT_EQ(valueIn("[k]\r\nv=hex:30,\\ \r\n\t01,\\\r\n02"), "bytes 48 1 2");
  EXPECT_EQ(valueIn("[k]\nv=hex:\\\n30\n"), "bytes 48");
  EXPECT_EQ(valueIn("[k]\nv=hex:30\\\n,31\n"), "bytes 48 49");
}

TEST(RegistryFile, AStrayBackslashDoesNotSwallowTheNextLine) {
  const std::string next[] = {"w=dword:00000001\n", "[k2]\nw=dword:00000001\n", "; abc\n", "\nab\n", "zz\n"};
  for (const std::string& lines : next) {
    const std::string text = "[k]\nv=hex:30,\\\n" + lines;
    EXPECT_EQ(valueIn(text), "malformed") << lines;
    RegistryFile file = fileOf(text);
    EXPECT_TRUE(file.remove("k", "v"));
    EXPECT_EQ(textOf(file), "[k]\n" + lines);
  }
}

TEST(RegistryFile, TellsValuesOfOtherTypesAndMissingOnesApart) {
  EXPECT_EQ(valueIn("[k]\nv=hello\n"), "malformed");
  EXPECT_EQ(valueIn("[k]\nv=\n"), "malformed");
  EXPECT_EQ(valueIn("[k]\nv=hex(2):30,00\n"), "malformed");
  EXPECT_EQ(valueIn("[k]\nv=dword\n"), "malformed");
  EXPECT_EQ(valueIn("[k]\nv2=hex:30\n"), "not found");
  EXPECT_EQ(valueIn("[k]\nv\n"), "not found");
  EXPECT_EQ(valueIn("[k]\n;v=hex:30\n#v=hex:30\n"), "not found");
  EXPECT_EQ(valueIn("[k2]\nv=hex:30\n"), "not found");
  EXPECT_EQ(valueIn("v=hex:30\n[k]\n"), "not found");
  EXPECT_EQ(valueIn(""), "not found");
}

TEST(RegistryFile, MatchesNamesWithoutRegardToAsciiCaseOnly) {
  const RegistryFile file =
      fileOf("[SOFTWARE\\Tellwick\\Zentor\\Agent]\nAgentGUID=dword:00000001\n\xC3\x84=dword:00000002\n");
  EXPECT_TRUE(file.bHasSection("software\\TELLWICK\\zentor\\agent"));
  EXPECT_TRUE(file.find("software\\tellwick\\zentor\\agent", "AGENTguid").ok());
  EXPECT_TRUE(file.find("SOFTWARE\\Tellwick\\Zentor\\Agent", "\xC3\x84").ok());
  EXPECT_FALSE(file.find("SOFTWARE\\Tellwick\\Zentor\\Agent", "\xC3\xA4").ok());
  EXPECT_FALSE(file.bHasSection("SOFTWARE\\Tellwick\\Zentor"));
  EXPECT_FALSE(file.bHasSection("SOFTWARE\\Tellwick\\Zentor\\Agent\\"));
}

TEST(RegistryFile, SectionsOfOneNameCountAsOne) {
  const std::string text = "[k]\na=dword:00000001\n[m]\nv=dword:00000005\n[K]\nv=dword:00000002\nv=dword:00000003\n";
  EXPECT_EQ(valueIn(text), "number 2");
  RegistryFile file = fileOf(text);
  EXPECT_TRUE(file.remove("k", "V"));
  EXPECT_FALSE(file.find("k", "v").ok());
  EXPECT_EQ(textOf(file), "[k]\na=dword:00000001\n[m]\nv=dword:00000005\n[K]\n");
}

TEST(RegistryFile, ALineThatOnlyStartsLikeASectionEndsTheOneBefore) {
  for (const char* line : {"[", "[m", "[m] ; comment", "[]"}) {
    const RegistryFile file = fileOf(std::string("[k]\n") + line + "\nv=hex:30\n");
    EXPECT_TRUE(file.bHasSection("k"));
    EXPECT_FALSE(file.bHasSection(""));
    EXPECT_FALSE(file.bHasSection("m"));
    EXPECT_FALSE(file.find("k", "v").ok()) << line;
  }
}

TEST(RegistryFile, KeepsEverythingThatIsNotDeletedByteForByte) {
  const std::string text =
      "\xEF\xBB\xBF; head\r\n\r\nstray line\n  [k]  \r\n# c\n v = hex:30,\\\r\n  31\r\nw=hello \t\nv=dword:00000001\n\n"
      "[k\nbroken\n[k]\nv2=1\nx";
  RegistryFile file = fileOf(text);
  EXPECT_EQ(textOf(file), text);
  EXPECT_FALSE(file.remove("k", "missing"));
  EXPECT_EQ(textOf(file), text);
  EXPECT_TRUE(file.remove("k", "v"));
  EXPECT_FALSE(file.remove("k", "v"));
  EXPECT_EQ(textOf(file),
            "\xEF\xBB\xBF; head\r\n\r\nstray line\n  [k]  \r\n# c\nw=hello \t\n\n[k\nbroken\n[k]\nv2=1\nx");
}

TEST(RegistryFile, DeletesALastLineWithoutALineEnd) {
  RegistryFile file = fileOf("[k]\r\nw=1\r\nv=hex:30,\\\r\n31");
  EXPECT_TRUE(file.remove("k", "v"));
  EXPECT_EQ(textOf(file), "[k]\r\nw=1\r\n");
}

TEST(RegistryFile, DeletesWhatIsMalformedToo) {
  RegistryFile file = fileOf("[k]\nv=hex:zz\nv=hex(7):30,\\\n00,00\nv=\n");
  EXPECT_TRUE(file.remove("k", "v"));
  EXPECT_EQ(textOf(file), "[k]\n");
}

TEST(RegistryFile, DeletingDoesNotJoinAnUnfinishedValueWithTheLineAfter) {
  RegistryFile file = fileOf("[k]\nv=hex:30,\\\nw=1\nw=2\n41\nx=hex:1,\\\r\nw=hex:2,\\\n03\n; 4\n");
  EXPECT_TRUE(file.remove("k", "w"));
  EXPECT_EQ(textOf(file), "[k]\nv=hex:30,\\\n\n41\nx=hex:1,\\\r\n; 4\n");
  EXPECT_EQ(file.find("k", "v").error().kind, base::ErrorKind::kMalformed);
}

TEST(RegistryFile, LeavesNothingBehindOfWhatItDeletes) {
  RegistryFile file = fileOf("[k]\nv=hex:c0,ff,ee\nw=1\n");
  const base::SecretBytes& content = file.content();
  const std::size_t before = content.size();
  EXPECT_TRUE(file.remove("k", "v"));
  EXPECT_EQ(content.size(), 8U);
  // The block is still as large as it was; what no length counts any more is zero.
  const volatile unsigned char* const block = content.data();
  for (std::size_t i = content.size(); i < before; ++i)
    EXPECT_EQ(block[i], 0) << i;
}

TEST(RegistryFile, AskingForValuesOfNoSectionFindsNone) {
  EXPECT_FALSE(fileOf("[]\nv=hex:30\n[x\nv=hex:30\n").find("", "v").ok());
}

TEST(RegistryFile, HoldsLongLines) {
  std::string list = "00";
  for (int i = 1; i < 100000; ++i)
    list += ",ff";
  const RegistryFile file = fileOf("[k]\nv=hex:" + list + "\nw=dword:00000001\n");
  const auto value = file.find("k", "v");
  ASSERT_TRUE(value.ok());
  EXPECT_EQ(value.value().bytes.size(), 100000U);
  EXPECT_TRUE(file.find("k", "w").ok());
}

TEST(RegistryFile, RefusesAFileWithAZeroByte) {
  const auto file = RegistryFile::parse(bytesOf(std::string("[k]\0\n", 5)));
  ASSERT_FALSE(file.ok());
  EXPECT_EQ(file.error().kind, base::ErrorKind::kMalformed);
}

}  // namespace
}  // namespace kelt::platform
