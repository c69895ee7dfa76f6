#include "provision/reply_archive.h"

#include <gtest/gtest.h>
#include <optional>
#include <random>
#include <string>

#include "platform/base64.h"

namespace kelt::provision {
namespace {

/// What decoding in pieces gives, or nothing for what is no base64.
std::optional<std::string> inPieces(const std::string& text, std::size_t piece) {
  std::string bytes;
  const auto keep = [&](std::span<const unsigned char> decoded) {
    bytes.append(decoded.begin(), decoded.end());
    return true;
  };
  const Decoding outcome = decodeInPieces(text, keep, piece);
  EXPECT_NE(outcome, Decoding::kNotStored);
  return outcome == Decoding::kDone ? std::optional(bytes) : std::nullopt;
}

bool bOnlyBlanks(const std::string& text) {
  return text.find_first_not_of(" \t\r\n") == std::string::npos;
}

/// The same of decoding as a whole, which gives nothing both for no base64 and for a text without any.
std::optional<std::string> atOnce(const std::string& text) {
  const ABuffer decoded = ABase64Encode::decode(std::wstring(text.begin(), text.end()));
  if (decoded.length() == 0 && !bOnlyBlanks(text)) return std::nullopt;
  return std::string(decoded.span().begin(), decoded.span().end());
}

TEST(DecodeInPieces, GivesWhatDecodingAsAWholeGives) {
  for (const std::string text : {"", "\r\n", "Zm9vYmFy", "Zm9vYmE=", "Zm9vYg==", "Zm9v\r\nYmFy\r\n",
                                 " Z m\t9\nv Y\rg = = ", "Zg==\n\n\n\n\n\n", "Zm9vYmFyZm9vYmFyZm9vYmFyZg=="}) {
    for (const std::size_t piece : {1U, 2U, 3U, 4U, 5U, 7U, 64U}) {
      ASSERT_TRUE(atOnce(text).has_value()) << text;
      EXPECT_EQ(inPieces(text, piece), atOnce(text)) << text << " by " << piece;
    }
  }
}

TEST(DecodeInPieces, RefusesWhatDecodingAsAWholeRefuses) {
  for (const std::string text :
       {"=",         "==",     "====",     "Z",           "Zm",       "Zm9",           "Z===", "Zg=",
        "Zm9v=",     "Zm9v==", "Zm9v====", "Zg==Zg==",    "Zg==Zm9v", "Z=g=",          "=Zg=", "Zm9vZ",
        "Zm9vZm9=v", "Zg====", "Zm9v-",    "Zm9v\x80YmE", "Zg==\n-",  "Zm9vYmE=\nYmFy"}) {
    for (const std::size_t piece : {1U, 2U, 3U, 4U, 5U, 7U, 64U}) {
      ASSERT_FALSE(atOnce(text).has_value()) << text;
      EXPECT_EQ(inPieces(text, piece), std::nullopt) << text << " by " << piece;
    }
  }
}

TEST(DecodeInPieces, AgreesWithDecodingAsAWholeOnAnyText) {
  // Much padding and many blanks, and now and then what is no base64.
  const std::string alphabet = "Zm9vYmFyABCDZm9vYmFyABCD+/==\n\n \r\t-";
  std::mt19937 random(4711);  // NOLINT(cert-msc32-c,cert-msc51-cpp): the same texts in every run
  int accepted = 0;
  for (int round = 0; round < 20000; ++round) {
    std::string text;
    const std::size_t length = random() % 24;
    const std::size_t letters = round % 3 == 0 ? alphabet.size() : alphabet.size() - 8 + random() % 8;
    while (text.size() < length)
      text += alphabet[random() % letters];
    if (round % 2 == 0) text += std::string("==\n").substr(random() % 4);
    const auto whole = atOnce(text);
    accepted += whole ? 1 : 0;
    for (const std::size_t piece : {1U, 3U, 4U, 5U, 9U})
      ASSERT_EQ(inPieces(text, piece), whole) << ::testing::PrintToString(text) << " by " << piece;
  }
  EXPECT_GT(accepted, 1000);
}

TEST(DecodeInPieces, HandsOverPiecesNoLargerThanTheTextTakenAtOnce) {
  const std::string text(std::size_t{1} << 20, 'A');
  std::size_t total = 0;
  const auto count = [&](std::span<const unsigned char> decoded) {
    EXPECT_LE(decoded.size(), kPiece);
    total += decoded.size();
    return true;
  };
  EXPECT_EQ(decodeInPieces(text, count), Decoding::kDone);
  EXPECT_EQ(total, text.size() / 4 * 3);
}

TEST(DecodeInPieces, EndsWhenTheSinkWantsNoMore) {
  int calls = 0;
  const auto refuse = [&](std::span<const unsigned char> /*decoded*/) { return ++calls < 2; };
  EXPECT_EQ(decodeInPieces("Zm9vYmFyZm9vYmFy", refuse, 4), Decoding::kNotStored);
  EXPECT_EQ(calls, 2);
}

}  // namespace
}  // namespace kelt::provision
