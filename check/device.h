#pragma once
// What the checks of one run share about the device, each as far as those before it have found it out.

#include <optional>
#include <string>
#include <vector>

#include "check/findings.h"

#include "platform/config_directory.h"
#include "platform/key_inspection.h"

namespace kelt::check {

/// Whose the agent's files are, and as whom the tool runs.
inline constexpr unsigned kAgentUser = 0;

/// A product other than the agent.
struct Product {
  std::string name;  ///< of its directory of the configuration
  platform::ConfigFile config;
};

struct Device {
  std::string startedIn;        ///< the working directory at the start, or what PWD said
  std::string agentName;        ///< the agent's own directory of the configuration; empty where there is none
  std::string agentConfigPath;  ///< and its file
  std::optional<platform::ConfigFile> agentConfig;  ///< where it is trusted and loads
  std::vector<Product> products;                    ///< likewise, in the order of their names
  /// False where this user may not read the agent's configuration: then these three are the usual ones, and the agent's
  /// may be others.
  bool bDirectoriesKnown = true;
  std::string binDirectory;
  std::string dataDirectory;
  std::string keyStore;
  bool bManaged = false;
  std::optional<platform::KeyRecord> record;  ///< mode and key size, where they are recorded
  bool bKeysStored = false;                   ///< the key store has a key
  bool bRunUnderWay = false;                  ///< a run of keltconfig holds the lock now
};

/// Each looks at one topic and tells what it finds. The order is that of a run.
/// The configuration directory and the files in it. Sets names, configurations and directories of `device`.
/// Before all others, as most of them look where it has found the agent.
void checkConfiguration(Device& device, Findings& findings);
/// The commands that the configuration names. Expects to be called in the agent's binary directory.
void checkCommands(const Device& device, Findings& findings);
/// The directories that a run enters and writes to, and what stands in its way there.
void checkDirectories(const Device& device, Findings& findings);
/// Free blocks and inodes, where a switch writes.
void checkRoom(const Device& device, Findings& findings);
/// The installed site list and the caches. Sets bManaged.
/// Before checkKeys, for which a missing key is a fault of a managed agent only.
void checkMode(Device& device, Findings& findings);
/// The key store. Sets record and bKeysStored.
void checkKeys(Device& device, Findings& findings);
/// Keys of an earlier agent that wait for an import.
/// Nothing is imported or deleted.
void checkRegistry(Findings& findings);
/// The lock between runs. Sets bRunUnderWay.
/// Before checkTraces: what a run that is under way has is no trace of one that was interrupted.
void checkLock(Device& device, Findings& findings);
/// What interrupted runs left.
/// Nothing of it is removed: that is for the next run, which holds the lock then.
void checkTraces(const Device& device, Findings& findings);
/// `bLoad`: whether the loadable parts are loaded on trial, which costs more than all other checks together.
void checkInstallation(bool bLoad, Findings& findings);
/// A rehearsal of `keltconfig -m -d` with `source`, as it was typed.
void checkSource(const Device& device, const std::string& source, Findings& findings);
/// A look at the server at `server`, as it was typed. The one that waits for others, and says so by begin().
void checkServer(const std::string& server, Findings& findings);

}  // namespace kelt::check
