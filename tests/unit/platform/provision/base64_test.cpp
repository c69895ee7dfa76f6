#include "platform/base64.h"

#include <gtest/gtest.h>
#include <string>

namespace {

std::string decoded(const std::wstring& text) {
  const ABuffer buffer = ABase64Encode::decode(text);
  return {buffer.span().begin(), buffer.span().end()};
}

std::wstring wide(const std::string& text) {
  return {text.begin(), text.end()};
}

/// Encodes in the plainest way there is, as a second opinion.
std::string encoded(const std::string& bytes) {
  const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  unsigned int bits = 0;
  int count = 0;
  for (const char byte : bytes) {
    bits = (bits << 8U) | static_cast<unsigned char>(byte);
    for (count += 8; count >= 6; count -= 6)
      text += alphabet[(bits >> static_cast<unsigned>(count - 6)) & 63U];
  }
  if (count > 0) text += alphabet[(bits << static_cast<unsigned>(6 - count)) & 63U];
  while (text.size() % 4 != 0)
    text += '=';
  return text;
}

std::string someBytes(std::size_t length) {
  std::string bytes;
  unsigned int state = 1;
  while (bytes.size() < length) {
    state = state * 1103515245U + 12345U;
    bytes += static_cast<char>(static_cast<unsigned char>(state >> 16U));
  }
  return bytes;
}

TEST(Base64, DecodesEveryPadding) {
  EXPECT_EQ(decoded(L"Zm9vYmFy"), "foobar");
  EXPECT_EQ(decoded(L"Zm9vYmE="), "fooba");
  EXPECT_EQ(decoded(L"Zm9vYg=="), "foob");
  EXPECT_EQ(decoded(L"+/+/"), "\xfb\xff\xbf");
}

TEST(Base64, DecodesNothingToNothing) {
  EXPECT_EQ(decoded(L""), "");
  EXPECT_EQ(decoded(L"\r\n"), "");
}

TEST(Base64, SkipsLineEndsAndBlanksAnywhere) {
  EXPECT_EQ(decoded(L"Zm9v\r\nYmFy\r\n"), "foobar");
  EXPECT_EQ(decoded(L" Z m\t9\nv Y\rg = = "), "foob");
}

TEST(Base64, RefusesCharactersOutsideTheAlphabet) {
  for (const wchar_t* text : {L"Zm9v-", L"-Zm9v", L"Zm-9v", L"Zm9v_mFy", L"Zm9v,YmFy", L"Zm9v\vYmFy", L"Zm9v\x7f",
                              L"Zm9v\x00e9", L"Zm9v\x0142", L"Zm9\xdc80"}) {
    EXPECT_EQ(ABase64Encode::decode(text).length(), 0U) << ACharString(text).str();
  }
  EXPECT_EQ(decoded(std::wstring(L"Zm9v\0Zm9v", 9)), "");
}

TEST(Base64, RefusesAWideCharacterWhoseLowByteIsInTheAlphabet) {
  EXPECT_EQ(decoded(std::wstring(L"Zm9") + static_cast<wchar_t>(0x0141)), "");
}

TEST(Base64, RefusesWrongPadding) {
  for (const wchar_t* text :
       {L"=", L"==", L"====", L"Z", L"Zm", L"Zm9", L"Z===", L"Zg=", L"Zm9v=", L"Zm9v==", L"Zm9v====", L"Zg==Zg==",
        L"Zg==Zm9v", L"Z=g=", L"=Zg=", L"Zm9vZ", L"Zm9vZm9=v", L"Zg===="}) {
    EXPECT_EQ(ABase64Encode::decode(text).length(), 0U) << ACharString(text).str();
  }
}

TEST(Base64, DecodesEveryLengthAcrossTheChunksItWorksIn) {
  for (std::size_t length : {1U, 2U, 3U, 47U, 48U, 49U, 3071U, 3072U, 3073U, 3074U, 6143U, 6145U, 100000U}) {
    const std::string bytes = someBytes(length);
    EXPECT_EQ(decoded(wide(encoded(bytes))), bytes) << length;
  }
}

TEST(Base64, DecodesLinesOfAnyLength) {
  const std::string bytes = someBytes(10000);
  const std::string text = encoded(bytes);
  for (std::size_t width : {1U, 4U, 63U, 64U, 76U, 1000U}) {
    std::string lines;
    for (std::size_t at = 0; at < text.size(); at += width)
      lines += text.substr(at, width) + "\r\n";
    EXPECT_EQ(decoded(wide(lines)), bytes) << width;
  }
}

TEST(Base64, RefusesATextCutAnywhereButBetweenGroups) {
  const std::string text = encoded(someBytes(5000));
  for (std::size_t length : {1U, 2U, 3U, 4095U, 4097U, 5001U, 6666U}) {
    EXPECT_EQ(decoded(wide(text.substr(0, length))), "") << length;
  }
  EXPECT_EQ(decoded(wide(text.substr(0, 4096))).size(), 3072U);
}

}  // namespace
