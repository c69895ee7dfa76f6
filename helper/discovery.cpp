// Finding the agent's own configuration file.

#include "helper/agent_paths.h"
#include "helper/unix_command_line_helper.h"
#include "platform/config_directory.h"

namespace kelt::helper {

using platform::ConfigDirectory;
using quorvane_com::orv::tellcomn_ansi_to_wide;
using quorvane_com::orv::tellcomn_wide_to_ansi;

void unixCommandLineHelper::GetORVPath(AString& path) const {
  ConfigDirectory directory(tellcomn_wide_to_ansi(paths::kConfigDir));
  if (directory.state() != ConfigDirectory::State::kUsable) return;
  if (const auto name = directory.nextAgent()) path = AString(tellcomn_ansi_to_wide(directory.fileOf(*name)));
}

}  // namespace kelt::helper
