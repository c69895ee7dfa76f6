#pragma once
// Whether the clock of the device can be right: logs and certificates are judged by it.

#include <cstdint>
#include <string>

namespace kelt::check {

/// Why `now`, in seconds since 1970 (UTC), cannot be the time of a device that runs a tool built at `built`: it is
/// before that, or half a century after. Empty where it can.
[[nodiscard]] std::string whyAbsurd(std::int64_t now, std::int64_t built);

/// "2026-11-22T03:24:52Z".
[[nodiscard]] std::string utcText(std::int64_t seconds);

}  // namespace kelt::check
