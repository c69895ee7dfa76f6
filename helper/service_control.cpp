// Starting and stopping the agent, and loading and unloading the plug-ins of the other products with it.

#include "base/console.h"
#include "helper/agent_paths.h"
#include "helper/messages.h"
#include "helper/product_directories.h"
#include "helper/trusted_config.h"
#include "helper/unix_command_line_helper.h"

namespace kelt::helper {
namespace {

using quorvane_com::orv::tellcomn_ansi_to_wide;
using quorvane_com::orv::tellcomn_wide_to_ansi;

bool loadAgentConfig(const unixCommandLineHelper& helper, AgentConfig& config) {
  AString path;
  helper.GetORVPath(path);
  return loadTrustedConfig(config, path.str());
}

const char* complaintAbout(ConfigDirState state) {
  switch (state) {
    case ConfigDirState::kInaccessible:
      return messages::kConfigDirInaccessible;
    case ConfigDirState::kWritableByOthers:
      return messages::kConfigDirWritable;
    case ConfigDirState::kUnreadable:
      return messages::kConfigDirUnreadable;
    case ConfigDirState::kUsable:
      break;
  }
  return nullptr;
}

/// Runs the command that each product but the agent names in the element `element`, in the order of the directory.
/// Returns false, with a message and nothing run, when the configuration directory cannot be used: it was fine when the
/// agent's own file was found in it, so it has changed since.
bool runPlugInCommands(const unixCommandLineHelper& helper, const wchar_t* element) {
  const std::string root = tellcomn_wide_to_ansi(paths::kConfigDirSlash);
  ProductDirectories directories(root);
  if (const char* complaint = complaintAbout(judgeConfigDir(directories, root))) {
    base::printLine(std::string_view(complaint));
    return false;
  }
  while (const auto name = directories.next()) {
    AgentConfig config;
    if (bAgentDirectory(*name)) continue;
    if (!loadTrustedConfig(config, tellcomn_ansi_to_wide(root + *name + paths::kConfigFile))) continue;
    if (const auto command = config.firstText(element)) helper.ExecCmd(*command);
  }
  return true;
}

}  // namespace

bool unixCommandLineHelper::StartORVService() {
  AgentConfig config;
  if (!loadAgentConfig(*this, config)) return false;
  if (!ExecCmd(config.firstTextOrEmpty(L"StartCommand"))) return false;
  // From here on the agent runs, whatever becomes of the plug-ins.
  runPlugInCommands(*this, L"LoadOrvPluginCommand");
  return true;
}

bool unixCommandLineHelper::StopORVService() {
  AgentConfig config;
  if (!loadAgentConfig(*this, config)) return false;
  const std::wstring stopCommand = config.firstTextOrEmpty(L"StopCommand");
  // A directory that others may have changed meanwhile is no ground to stop the agent on; that counts as done.
  if (!runPlugInCommands(*this, L"UnloadOrvPluginCommand")) return true;
  return ExecCmd(stopCommand);
}

}  // namespace kelt::helper
