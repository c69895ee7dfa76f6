// Finding the agent's own configuration file.

#include "helper/agent_paths.h"
#include "helper/product_directories.h"
#include "helper/unix_command_line_helper.h"

namespace kelt::helper {

using quorvane_com::orv::tellcomn_ansi_to_wide;
using quorvane_com::orv::tellcomn_wide_to_ansi;

void unixCommandLineHelper::GetORVPath(AString& path) const {
  const std::string root = tellcomn_wide_to_ansi(paths::kConfigDirSlash);
  ProductDirectories directories(root);
  if (judgeConfigDir(directories, root) != ConfigDirState::kUsable) return;

  while (const auto name = directories.next()) {
    if (!bAgentDirectory(*name)) continue;
    path = AString(tellcomn_ansi_to_wide(root + *name + paths::kConfigFile));
    return;
  }
}

}  // namespace kelt::helper
