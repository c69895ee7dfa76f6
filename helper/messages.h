#pragma once
// The console texts of this folder, without their final line end. The blanks in them belong to them. docs/console.md
// says what an administrator does about each.

namespace kelt::helper::messages {

// Starting and stopping the agent, where the configuration directory has changed since the agent was found in it. A
// start goes on without plug-ins, a stop does nothing; both count as done.
inline constexpr const char* kConfigDirInaccessible = "Failed to Access Config Dir.";
inline constexpr const char* kConfigDirWritable = "Security Issue, Config Dir is writable by non root.";
inline constexpr const char* kConfigDirUnreadable = "Opendir failed for config directory.";

// Version and hotfix checks, each after an empty line.
inline constexpr const char* kProperVersion = "\n Proper Version ";
inline constexpr const char* kImproperVersion = "\n Improper Version ";
inline constexpr const char* kHotfixExists = "\n Hotfix already Exists ";
inline constexpr const char* kConflictMatch = "\n reg and conflict match ";
inline constexpr const char* kConflictFound = "\n Found ";
inline constexpr const char* kConflictNotFound = "\n Not Found ";

// Site list conversion: how it went, before the switch goes on or ends.
inline constexpr const char* kSiteListConverted = "Successfully convert the sitelist.xml file to utf8";
inline constexpr const char* kSiteListNotConverted = "Error : Fail to convert the sitelist.xml file to utf8";

// FIPS mode record.
inline constexpr const char* kConfigFileUnusable = "Unable to use the existing file";

}  // namespace kelt::helper::messages
