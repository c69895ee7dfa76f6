#pragma once
// What this tool says in the agent's log: what the console has no text for, for whoever looks into a device later on.

#include <string_view>

namespace kelt::helper {

/// Puts a line into the agent's log (platform/logger.h) under the name of this tool: something that was done, or that
/// could not be done. `text` is UTF-8, without a line end. Never fails: a line that there is no memory for is left out.
void logEvent(std::string_view text) noexcept;
void logProblem(std::string_view text) noexcept;

}  // namespace kelt::helper
