#pragma once
// The directories that the agent's configuration names.

#include <string>

namespace kelt::helper {

/// The agent's binary directory, and the one of its data, as its configuration file has them now, or its usual ones
/// where that names none (platform/iconfiguration.h). UTF-8. Throws std::bad_alloc.
[[nodiscard]] std::string agentBinDirectory();
[[nodiscard]] std::string agentDataDirectory();

/// The path (UTF-8) of the file `name` in the agent's data directory, whether it is there or not. Throws
/// std::bad_alloc.
[[nodiscard]] std::string inAgentDataDirectory(const std::string& name);

}  // namespace kelt::helper
