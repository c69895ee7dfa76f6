#include "check/readable.h"

#include <gtest/gtest.h>

using kelt::check::readable;

namespace {

TEST(Readable, LeavesTextAsItIs) {
  EXPECT_EQ(readable("plain text ~"), "plain text ~");
  EXPECT_EQ(readable("Schl\xC3\xBCssel \xE4\xB8\xAD"), "Schl\xC3\xBCssel \xE4\xB8\xAD");
  EXPECT_EQ(readable(""), "");
}

TEST(Readable, ShowsWhatCouldMoveTheCursorOrEndALine) {
  EXPECT_EQ(readable("a\x1B[2J\r\n\tb\x7F"), "a\\x1B[2J\\x0D\\x0A\\x09b\\x7F");
  EXPECT_EQ(readable("\xC2\x9B"), "\\x9B");
}

TEST(Readable, ShowsBytesThatAreNoText) {
  EXPECT_EQ(readable("\xFF\xC3"), "\\xFF\\xC3");
}

TEST(Readable, DropsMarksThatEndALine) {
  EXPECT_EQ(readable("a\xE2\x80\xA8"
                     "b\xE2\x80\xA9"
                     "c\xEF\xBB\xBF"),
            "abc");
  EXPECT_EQ(readable("a\xE2\x80\xA7"
                     "b\xE2\x80\xAF"),
            "a\xE2\x80\xA7"
            "b\xE2\x80\xAF");
}

TEST(Readable, DropsMarksThatTurnTextRound) {
  EXPECT_EQ(readable("a\xE2\x80\xAE"
                     "b\xE2\x81\xA6"
                     "c"),
            "abc");
}

}  // namespace
