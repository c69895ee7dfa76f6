#pragma once
// Text from the device, made fit to be shown.

#include <string>
#include <string_view>

namespace kelt::check {

/// `text` as valid UTF-8 without anything that could move a cursor or end a line: control characters become "\x1B" and
/// their like, bytes that are no UTF-8 "\xFF" and their like; marks that turn text round or end lines are left out.
[[nodiscard]] std::string readable(std::string_view text);

}  // namespace kelt::check
