#pragma once
// Where the tool was started, and where it works.

#include <optional>
#include <string>

namespace kelt::app {

/// The working directory as UTF-8 or whatever bytes it has, at most 1023: from the system, or else (it was removed, or
/// its path is longer) from the environment variable PWD, cut off there, which may be empty. Nothing where neither has
/// one.
[[nodiscard]] std::optional<std::string> currentDirectory();

/// Changes into the agent's binary directory, for relative names of its files to mean what they mean to the agent.
/// Returns false, with a message and the working directory as it was, when that fails.
[[nodiscard]] bool enterAgentBinDirectory();

}  // namespace kelt::app
