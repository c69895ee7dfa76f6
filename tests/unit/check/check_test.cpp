#include "check/check.h"

#include <gtest/gtest.h>

using namespace kelt::check;  // NOLINT(google-build-using-namespace)

namespace {

TEST(Check, NamesItsStates) {
  EXPECT_STREQ(nameOf(State::kOk), "ok");
  EXPECT_STREQ(nameOf(State::kWarning), "warning");
  EXPECT_STREQ(nameOf(State::kProblem), "problem");
  EXPECT_STREQ(nameOf(State::kUnknown), "unknown");
}

TEST(Check, BelongsToTheGroupBeforeTheDot) {
  EXPECT_EQ(groupOf("config.file"), "config");
  EXPECT_EQ(groupOf("alone"), "alone");
}

TEST(Facts, GiveTheFirstValue) {
  const Facts facts{{"servers", {"a", "b"}}, {"none", {}}};
  EXPECT_EQ(firstOf(facts, "servers"), "a");
  EXPECT_EQ(firstOf(facts, "none"), "");
  EXPECT_EQ(firstOf(facts, "missing"), "");
}

}  // namespace
