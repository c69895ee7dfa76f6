#pragma once
// What killed runs and power cuts left behind of files that were being written.

#include <string>

namespace kelt::helper {

/// Removes it from `directory` (base/sweep.h), with a line in the agent's log for each file. For whoever holds the
/// instance lock, before its own work there. A failure changes nothing. Throws std::bad_alloc, with some of it removed.
void sweepDirectory(const std::string& directory);

/// The same for every directory of the installation that this tool writes to: the agent's configuration, installation
/// and scratch directories, its data directory and its key store.
void sweepInstallation();

}  // namespace kelt::helper
