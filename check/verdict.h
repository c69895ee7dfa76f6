#pragma once
// What all findings come to.

#include <string>

#include "check/check.h"

namespace kelt::check {

/// The worst state of all: a problem before a warning, that before what is unknown. A report without checks is unknown.
[[nodiscard]] State verdictOf(const Report& report);

/// The exit status for it, as monitoring plug-ins have it: 0 ok, 1 warning, 2 problem, 3 unknown.
[[nodiscard]] int exitStatusOf(State verdict);

/// How the device stands, in one line of less than 1200 bytes: what manages the agent, and what is worst.
[[nodiscard]] std::string summaryOf(const Report& report);

}  // namespace kelt::check
