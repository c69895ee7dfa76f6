#pragma once

namespace kelt::app {

/// Prints the help text. Options meant for the agent's own scripts are not in it.
void DisplayHelp();

}  // namespace kelt::app
