#pragma once
// Where the agent keeps what the bundled platform reads and writes by itself. No other file of the platform spells a
// path of the device.

namespace kelt::platform::paths {

/// The products of the agent keep their configuration here, a directory each.
inline constexpr const char* kConfigDir = "/etc/orv.d";
/// A directory whose name contains this is the agent's own, and this is its configuration file.
inline constexpr const char* kAgentMarker = "ZENTORAGENT";
inline constexpr const char* kConfigFile = "config.xml";

/// Where the agent is installed when its configuration does not say.
inline constexpr const char* kDefaultBinDir = "/opt/Quorvane/orv/bin";
inline constexpr const char* kDefaultDataDir = "/opt/Quorvane/orv/scratch";

/// Locks between processes stand here, a file each.
inline constexpr const char* kLockDir = "/run/orv-locks";

/// Below the agent's data directory: its log and its key store.
inline constexpr const char* kLogDirName = "logs";
inline constexpr const char* kLogFileName = "keltcfg.log";
inline constexpr const char* kKeyStoreDirName = "keystore";

}  // namespace kelt::platform::paths
