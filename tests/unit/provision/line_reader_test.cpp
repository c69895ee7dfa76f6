#include "provision/line_reader.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <sstream>
#include <vector>

namespace kelt::provision {
namespace {

/// Hands `text` out in pieces of `piece` bytes at most.
LineReader::Source source(std::string text, std::size_t piece = 256) {
  return [text = std::move(text), piece, at = std::size_t{0}](std::span<char> buffer) mutable {
    const std::size_t count = std::min({piece, buffer.size(), text.size() - at});
    std::copy_n(text.begin() + static_cast<std::ptrdiff_t>(at), count, buffer.begin());
    at += count;
    return count;
  };
}

using Lines = std::vector<std::string>;

Lines threeOf(const std::string& text, std::size_t piece = 256) {
  LineReader reader(source(text, piece));
  Lines lines;
  for (int i = 0; i < 3; ++i)
    lines.push_back(reader.next());
  return lines;
}

/// The same from a stream of the standard library.
Lines threeOfStream(const std::string& text) {
  std::istringstream stream(text);
  Lines lines;
  for (int i = 0; i < 3; ++i) {
    char buffer[256] = {};
    stream.getline(buffer, 255);
    lines.emplace_back(buffer);
  }
  return lines;
}

TEST(LineReader, ReadsLineByLine) {
  EXPECT_EQ(threeOf("server\nuser\npass word\n"), (Lines{"server", "user", "pass word"}));
}

TEST(LineReader, TakesEmptyLinesAndBlanksAsTheyAre) {
  EXPECT_EQ(threeOf("\n \t\n\r\n"), (Lines{"", " \t", "\r"}));
}

TEST(LineReader, TakesALastLineWithoutItsEnd) {
  EXPECT_EQ(threeOf("server\nuser"), (Lines{"server", "user", ""}));
}

TEST(LineReader, ReadsNothingFromAnEmptyInput) {
  EXPECT_EQ(threeOf(""), (Lines{"", "", ""}));
}

TEST(LineReader, TakesALineOfTheGreatestLength) {
  const std::string longest(254, 'x');
  EXPECT_EQ(threeOf(longest + "\nuser\npass\n"), (Lines{longest, "user", "pass"}));
}

TEST(LineReader, CutsALongerLineAndReadsNothingMore) {
  const std::string longest(254, 'x');
  EXPECT_EQ(threeOf(longest + "y\nuser\npass\n"), (Lines{longest, "", ""}));
  EXPECT_EQ(threeOf(std::string(10000, 'x') + "\nuser\n"), (Lines{longest, "", ""}));
  EXPECT_EQ(threeOf("server\n" + std::string(255, 'x') + "\npass\n"), (Lines{"server", longest, ""}));
}

TEST(LineReader, EndsAValueAtAZeroByte) {
  EXPECT_EQ(threeOf(std::string("ser\0ver\nuser\n", 13)), (Lines{"ser", "user", ""}));
}

TEST(LineReader, KeepsBytesThatAreNoAscii) {
  EXPECT_EQ(threeOf("p\xc3\xa4ss\xff\n")[0], "p\xc3\xa4ss\xff");
}

TEST(LineReader, ReadsTheSameInPiecesOfAnySize) {
  for (std::size_t piece : {1U, 2U, 3U, 255U, 256U}) {
    EXPECT_EQ(threeOf("server\nuser\n" + std::string(254, 'p') + "\n", piece),
              (Lines{"server", "user", std::string(254, 'p')}));
  }
}

TEST(LineReader, AgreesWithTheStandardStreams) {
  for (const std::string& head :
       {std::string(), std::string("a\n"), std::string(253, 'x'), std::string(254, 'x'), std::string(255, 'x'),
        std::string(256, 'x'), std::string(254, 'x') + "\n", std::string(255, 'x') + "\n"}) {
    for (const char* tail : {"", "\n", "b", "b\n", "b\nc", "\n\nc\n"}) {
      EXPECT_EQ(threeOf(head + tail), threeOfStream(head + tail)) << head.size() << tail;
    }
  }
}

}  // namespace
}  // namespace kelt::provision
