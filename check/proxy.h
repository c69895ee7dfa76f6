#pragma once
// What the environment says of a proxy, which would stand between the device and its server.

#include <string>

namespace kelt::check {

/// Which proxy the environment would have a transfer by HTTPS go through, as a sentence; empty where it names none.
/// A user name and a password in its address are left out.
[[nodiscard]] std::string proxySentence();

}  // namespace kelt::check
