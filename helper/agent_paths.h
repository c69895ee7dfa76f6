#pragma once
// The paths of the device, in UTF-8. No other file above platform/ spells one.
//
// Directories and file names are joined by plain concatenation: where the directory ends in "/" and the name begins
// with one, the doubled slash is kept, and shows in messages.

namespace kelt::helper::paths {

/// Where the products of the agent keep their configuration, a directory each. Root's; who may write there decides what
/// root runs.
inline constexpr const char* kConfigDir = "/etc/orv.d";

/// The agent's installation, its scratch directory, and the registry emulation in it.
inline constexpr const char* kInstallDir = "/opt/Quorvane/orv/";
inline constexpr const char* kScratchDir = "/opt/Quorvane/orv/scratch/";
inline constexpr const char* kScratchEtcDir = "/opt/Quorvane/orv/scratch/etc";
inline constexpr const char* kRegistryFile = "/opt/Quorvane/orv/scratch/registry.ini";

/// Key files and site list, as they are named in a source directory and in the installation.
inline constexpr const char* kRequestKey2048 = "/req2048seckey.bin";
inline constexpr const char* kRequestKey = "/reqseckey.bin";
inline constexpr const char* kFipsMarker = "/agentfipsmode";
inline constexpr const char* kServerKey2048 = "/sr2048pubkey.bin";
inline constexpr const char* kServerKey = "/srpubkey.bin";
inline constexpr const char* kSiteList = "/SiteList.xml";

/// The lock between runs, by its name, and the marks of what a run owes the agent, in the directory of the lock.
inline constexpr const char* kInstanceLock = "71D551C0-D2DA-42F0-BB87-E4CE5347DD14-sync_mutex";
inline constexpr const char* kStartOwed = "/run/orv-locks/agent-stopped";
inline constexpr const char* kPlugInsOwed = "/run/orv-locks/plug-ins-unloaded";

/// What the agent caches of its server: the first in the scratch directory, the second in its "etc".
inline constexpr const char* kServerSiteList = "/ServerSiteList.xml";
inline constexpr const char* kSiteCache = "/sitecache.bin";

/// Appended to the scratch directory: where an update leaves key files to import.
inline constexpr const char* kUpdateDir = "/update";
/// In the agent's data directory: what it reports of the administrator's, its keys, and the mark of work begun
/// (helper/unfinished_work.h).
inline constexpr const char* kCustomProperties = "CustomProps.xml";
inline constexpr const char* kKeyStore = "keystore";
inline constexpr const char* kUnfinishedWork = "unfinished-work";

}  // namespace kelt::helper::paths
