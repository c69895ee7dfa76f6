#pragma once
// The help text.

namespace kelt::app {

/// Prints the help text to standard output. Options meant for the agent's own scripts are not
/// in it. Never fails.
void DisplayHelp();

}  // namespace kelt::app
