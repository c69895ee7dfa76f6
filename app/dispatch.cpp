#include "app/dispatch.h"

#include <optional>

#include "app/custom_properties.h"
#include "app/exit_status.h"
#include "app/messages.h"
#include "base/console.h"
#include "base/secret.h"
#include "helper/leftovers.h"
#include "helper/while_stopped.h"

namespace kelt::app {
namespace {

using helper::CommandLineHelper;

/// A step's answer: the exit status where the run ends with it, nothing where it goes on.
using Ended = std::optional<int>;

Ended checkVersion(const CommandLineData& data, CommandLineHelper& agent) {
  if (!data.checkVersionGiven) return std::nullopt;
  // A copy: the operation takes what it may change. It also keeps the hotfix for the conflict check, which follows.
  std::wstring version = data.GetCheckVersion();
  if (agent.CheckVersion(version)) return std::nullopt;
  return kWrongVersion;
}

Ended checkConflicts(const CommandLineData& data, CommandLineHelper& agent) {
  if (!data.conflictListGiven) return std::nullopt;
  std::wstring conflicts = data.GetConflictList();
  if (agent.CheckConflictList(conflicts)) return std::nullopt;
  base::printLine(messages::kConflict);
  return kHotfixConflict;
}

Ended showVersion(const CommandLineData& data) {
  if (!data.showVersion) return std::nullopt;
  base::printLine(messages::kVersion);
  return kDone;
}

Ended switchToManaged(CommandLineData& data, const std::wstring& currentDir, CommandLineHelper& agent) {
  if (!data.managedMode) return std::nullopt;
  if (!data.sourceDirGiven) {
    base::printLine(messages::kSourceDirMissing);
    return std::nullopt;  // as if the option had not been given: what follows decides the status
  }
  // The password goes into the argument itself, which the switch wipes before it runs any command.
  return agent.PrepareORV(true, data.noStart, data.GetSiteListPath(), currentDir, data.pFlag, data.GetLogFile(),
                          data.fFlag, data.provision, data.GetZentorServer(), data.GetZentorUser(),
                          data.takeZentorPassword());
}

Ended switchToUnmanaged(const CommandLineData& data, CommandLineHelper& agent) {
  if (!data.unmanagedMode) return std::nullopt;
  return agent.PrepareORV(false, data.noStart, L"", L"", false, L"", false, false, L"", L"", L"");
}

Ended startService(const CommandLineData& data, CommandLineHelper& agent) {
  if (!data.startService || agent.StartORVService()) return std::nullopt;
  return kServiceNotStarted;
}

Ended stopService(const CommandLineData& data, CommandLineHelper& agent) {
  if (!data.stopService || agent.StopORVService()) return std::nullopt;
  return kServiceNotStopped;
}

/// Where products with a script engine of their own wait for it to finish; this agent has none.
void wait_for_script_engine() {}

Ended importKeys(const CommandLineData& data, CommandLineHelper& agent) {
  if (!data.importKeysOnly) return std::nullopt;
  wait_for_script_engine();
  // A failed import leaves the agent as it was, running, even where it was to stay stopped.
  const auto startAgain = data.noStart ? helper::StartAgain::kAfterFailure : helper::StartAgain::kAlways;
  const auto import = helper::whileStopped(agent, startAgain, [&] { return agent.ImportKeys(true); });
  if (!import.bStopped) return kServiceNotStopped;
  // A failed import counts for more than a failed start after it: it is what there is to mend first.
  if (!import.bDone) return kKeysNotImported;
  if (import.bStartFailed) return kServiceNotStarted;
  return std::nullopt;
}

/// Whether the run is about to write files of the installation. Any other run leaves it as it is, leftovers included.
bool bWrites(const CommandLineData& data) {
  const bool bSwitches = (data.managedMode && data.sourceDirGiven) || data.unmanagedMode;
  return bSwitches || data.importKeysOnly || data.customPropsGiven;
}

Ended checkAgent(const CommandLineData& data, CommandLineHelper& agent) {
  if (const Ended ended = checkVersion(data, agent)) return ended;
  if (const Ended ended = checkConflicts(data, agent)) return ended;
  // Last, as a check that fails ends the run with its own status.
  return showVersion(data);
}

Ended switchMode(CommandLineData& data, const std::wstring& currentDir, CommandLineHelper& agent) {
  if (const Ended ended = switchToManaged(data, currentDir, agent)) return ended;
  data.SetZentorPassword({});  // nothing below needs it, and commands are run
  base::wipeUnusedStack();
  return switchToUnmanaged(data, agent);
}

Ended controlService(const CommandLineData& data, CommandLineHelper& agent) {
  // Started before it is stopped: who asks for both has it stopped in the end.
  if (const Ended ended = startService(data, agent)) return ended;
  if (const Ended ended = stopService(data, agent)) return ended;
  return importKeys(data, agent);
}

}  // namespace

int runOptions(CommandLineData& data, const std::wstring& currentDir, CommandLineHelper& agent) {
  if (const Ended ended = checkAgent(data, agent)) return *ended;
  // After the checks, which may end the run, and before its first own file.
  if (bWrites(data)) helper::sweepInstallation();
  if (const Ended ended = switchMode(data, currentDir, agent)) return *ended;
  if (const Ended ended = controlService(data, agent)) return *ended;
  // Without a status of its own: a property that cannot be written does not make a failure of a switch that is done.
  if (data.customPropsGiven) replaceCustomProperties(data);
  return kDone;
}

}  // namespace kelt::app
