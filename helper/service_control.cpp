// Starting and stopping the agent, and loading and unloading the plug-ins of the other products with it.

#include <optional>

#include "base/console.h"
#include "helper/agent_paths.h"
#include "helper/messages.h"
#include "helper/owed_start.h"
#include "helper/start_promise.h"
#include "helper/unix_command_line_helper.h"
#include "platform/config_directory.h"
#include "platform/refusals.h"

namespace kelt::helper {
namespace {

using platform::ConfigDirectory;
using platform::ConfigFile;

ConfigDirectory openConfigDirectory() {
  return ConfigDirectory(quorvane_com::orv::tellcomn_wide_to_ansi(paths::kConfigDir));
}

/// What was loaded; nothing, with the reason in the log, where it was not.
std::optional<ConfigFile> logged(base::Result<ConfigFile> file) {
  if (file) return std::move(file).value();
  platform::logRefusal(file.error());
  return std::nullopt;
}

const char* complaintAbout(ConfigDirectory::State state) {
  switch (state) {
    case ConfigDirectory::State::kInaccessible:
      return messages::kConfigDirInaccessible;
    case ConfigDirectory::State::kWritableByOthers:
      return messages::kConfigDirWritable;
    case ConfigDirectory::State::kUnreadable:
      return messages::kConfigDirUnreadable;
    case ConfigDirectory::State::kUsable:
      break;
  }
  return nullptr;
}

/// Runs the command that each product but the agent names in the element `element`, in the order of the directory.
/// Returns false, with a message and nothing run, when the configuration directory cannot be used: it was fine when the
/// agent's own file was found in it, so it has changed since.
template <typename Run>
bool runPlugInCommands(const wchar_t* element, Run run) {
  ConfigDirectory directory = openConfigDirectory();
  if (const char* complaint = complaintAbout(directory.state())) {
    base::printLine(std::string_view(complaint));
    platform::logRefusal(directory.usable().error());
    return false;
  }
  while (const auto name = directory.next()) {
    if (ConfigDirectory::bAgent(*name)) continue;
    const auto config = logged(directory.load(*name));
    if (!config) continue;
    if (const auto command = config->firstText(element)) run(*command);
  }
  return true;
}

/// An agent that is to stay stopped is owed nothing, whatever an earlier run owed it.
void forgiveDebts() {
  settle(Owed::kStart);
  settle(Owed::kPlugIns);
}

}  // namespace

std::unique_ptr<StartPromise> unixCommandLineHelper::promiseStart() {
  return guardedPromise(*this);
}

bool unixCommandLineHelper::StartORVService() {
  const auto config = logged(openConfigDirectory().loadAgent());
  if (!config) return false;
  if (!run(
          config->firstTextOrEmpty(L"StartCommand"), [] { settle(Owed::kStart); }, true))
    return false;
  // From here on the agent runs, whatever becomes of the plug-ins.
  loadPlugIns();
  return true;
}

void unixCommandLineHelper::loadPlugIns() const {
  runPlugInCommands(L"LoadOrvPluginCommand", [&](const std::wstring& command) { run(command, nullptr, true); });
  settle(Owed::kPlugIns);
}

bool unixCommandLineHelper::StopORVService() {
  using Last = void (*)();
  const Last oweStart = m_bStartPromised ? Last([] { owe(Owed::kStart); }) : nullptr;
  const Last owePlugIns = m_bStartPromised ? Last([] { owe(Owed::kPlugIns); }) : nullptr;
  const auto config = logged(openConfigDirectory().loadAgent());
  if (!config) return false;
  const std::wstring stopCommand = config->firstTextOrEmpty(L"StopCommand");
  const auto unload = [&](const std::wstring& command) { run(command, owePlugIns, false); };
  // A directory that others may have changed meanwhile is no ground to stop the agent on; that counts as done.
  if (!runPlugInCommands(L"UnloadOrvPluginCommand", unload)) return true;
  if (!run(stopCommand, oweStart, false)) return false;
  if (!m_bStartPromised) forgiveDebts();
  return true;
}

}  // namespace kelt::helper
