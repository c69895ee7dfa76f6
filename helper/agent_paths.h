#pragma once
// The paths of the device. No other file above platform/ spells one.
//
// Directories and file names are joined by plain concatenation: where the directory ends in "/" and the name begins
// with one, the doubled slash is kept, and shows in messages.

namespace kelt::helper::paths {

/// Where the products of the agent keep their configuration, a directory each.
inline constexpr const wchar_t* kConfigDir = L"/etc/orv.d";

/// The agent's installation and its scratch directory.
inline constexpr const wchar_t* kInstallDir = L"/opt/Quorvane/orv/";
inline constexpr const wchar_t* kScratchDir = L"/opt/Quorvane/orv/scratch/";
inline constexpr const wchar_t* kScratchEtcDir = L"/opt/Quorvane/orv/scratch/etc";
inline constexpr const wchar_t* kRegistryFile = L"/opt/Quorvane/orv/scratch/registry.ini";

/// Key files and site list, as they are named in a source directory and in the installation.
inline constexpr const wchar_t* kRequestKey2048 = L"/req2048seckey.bin";
inline constexpr const wchar_t* kRequestKey = L"/reqseckey.bin";
inline constexpr const wchar_t* kFipsMarker = L"/agentfipsmode";
inline constexpr const wchar_t* kServerKey2048 = L"/sr2048pubkey.bin";
inline constexpr const wchar_t* kServerKey = L"/srpubkey.bin";
inline constexpr const wchar_t* kSiteList = L"/SiteList.xml";

/// The lock between runs, by its name, and the marks of what a run owes the agent, in the directory of the lock.
inline constexpr const char* kInstanceLock = "71D551C0-D2DA-42F0-BB87-E4CE5347DD14-sync_mutex";
inline constexpr const char* kStartOwed = "/run/orv-locks/agent-stopped";
inline constexpr const char* kPlugInsOwed = "/run/orv-locks/plug-ins-unloaded";

/// What the agent caches of its server.
inline constexpr const wchar_t* kServerSiteList = L"/ServerSiteList.xml";
inline constexpr const wchar_t* kSiteCache = L"/sitecache.bin";

/// Appended to the scratch directory: where an update leaves key files to import.
inline constexpr const wchar_t* kUpdateDir = L"/update";
/// In the agent's data directory.
inline constexpr const wchar_t* kCustomProperties = L"CustomProps.xml";
inline constexpr const wchar_t* kKeyStore = L"keystore";
inline constexpr const wchar_t* kUnfinishedWork = L"unfinished-work";

}  // namespace kelt::helper::paths
