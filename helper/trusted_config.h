#pragma once
// Configuration files whose commands root may run.

#include <string>
#include <sys/stat.h>

#include "helper/agent_config.h"

namespace kelt::helper {

/// Whether a file or directory belongs to root and is not writable by others. The group's permission is not looked at.
[[nodiscard]] bool bOnlyRootWrites(const struct stat& info);

/// Loads the configuration file at `path` as AgentConfig::load does, but only where nobody but root (and a group that
/// root lets) could have written it: the file and the directory that it stands in belong to root and are not writable
/// by others. Returns false, with nothing loaded, where that is not so, for what is not a regular file, and where
/// AgentConfig::load fails.
[[nodiscard]] bool loadTrustedConfig(AgentConfig& config, const std::wstring& path);

}  // namespace kelt::helper
