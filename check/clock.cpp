#include "check/clock.h"

#include <array>
#include <ctime>

namespace kelt::check {
namespace {

/// In seconds; with a leap year in each year, as it is a bound and no date.
constexpr std::int64_t kHalfACentury = std::int64_t{50} * 366 * 24 * 3600;

}  // namespace

std::string whyAbsurd(std::int64_t now, std::int64_t built) {
  if (now < built) return "is before the day on which keltcheck was built, " + utcText(built);
  if (now > built + kHalfACentury) return "is half a century after keltcheck was built, " + utcText(built);
  return {};
}

std::string utcText(std::int64_t seconds) {
  const auto time = static_cast<std::time_t>(seconds);
  std::tm utc{};
  std::array<char, 40> text{};
  if (::gmtime_r(&time, &utc) == nullptr) return std::to_string(seconds);
  return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &utc)};
}

}  // namespace kelt::check
