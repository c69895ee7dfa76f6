#include "helper/leftovers.h"

#include "base/file_place.h"
#include "base/sweep.h"
#include "base/utf.h"
#include "helper/agent_directories.h"
#include "helper/agent_log.h"
#include "helper/agent_paths.h"
#include "helper/unix_command_line_helper.h"

namespace kelt::helper {

void sweepDirectory(const std::string& directory) {
  for (const std::string& path : base::sweepDirectory(directory))
    logEvent("Removed what an interrupted run left, " + path);
}

void sweepInstallation() {
  // Not the whole configuration directory: the tool writes to the agent's own part of it alone.
  AString config;
  unixCommandLineHelper().GetORVPath(config);
  if (!config.empty()) sweepDirectory(base::directoryOf(base::toUtf8(config.str())));
  for (const std::string& directory :
       {std::string(paths::kInstallDir), std::string(paths::kScratchDir), std::string(paths::kScratchEtcDir),
        agentDataDirectory(), inAgentDataDirectory(paths::kKeyStore)})
    sweepDirectory(directory);
}

}  // namespace kelt::helper
