// Finding the agent's own configuration file.

#include "base/utf.h"
#include "helper/agent_paths.h"
#include "helper/unix_command_line_helper.h"
#include "platform/config_directory.h"

namespace kelt::helper {

using platform::ConfigDirectory;

void unixCommandLineHelper::GetORVPath(AString& path) const {
  ConfigDirectory directory(paths::kConfigDir);
  // Whoever may write there could name the commands that root runs. Those who run one say so; here it is just not
  // found.
  if (directory.state() != ConfigDirectory::State::kUsable) return;
  if (const auto name = directory.nextAgent()) path = base::toWide(directory.fileOf(*name));
}

}  // namespace kelt::helper
