#include "check/clock.h"

#include <gtest/gtest.h>

using kelt::check::utcText;
using kelt::check::whyAbsurd;

namespace {

constexpr std::int64_t kBuilt = 1795305600;

TEST(Clock, IsAbsurdBeforeTheBuildAndHalfACenturyAfter) {
  EXPECT_EQ(whyAbsurd(kBuilt, kBuilt), "");
  EXPECT_EQ(whyAbsurd(kBuilt + 3600, kBuilt), "");
  EXPECT_EQ(whyAbsurd(kBuilt - 1, kBuilt), "is before the day on which keltcheck was built, 2026-11-22T00:00:00Z");
  EXPECT_EQ(whyAbsurd(0, kBuilt), whyAbsurd(-1, kBuilt));
  EXPECT_NE(whyAbsurd(kBuilt * 2, kBuilt), "");
}

TEST(Clock, IsShownInUtcBeyondTheYear2038) {
  EXPECT_EQ(utcText(0), "1970-01-01T00:00:00Z");
  EXPECT_EQ(utcText(4102444800), "2100-01-01T00:00:00Z");
}

}  // namespace
