#pragma once
// The console texts of this folder, without their final line end. Those that end in a blank are followed by a path.
// docs/console.md says what an administrator does about each.

#include <string>

namespace kelt::modes::messages {

// Looking for the source directory, and the switches themselves. The switch goes on after each of these, and its status
// is 1 in the end; a site list that cannot be examined only leads to the next directory.
inline constexpr const char* kSiteListInaccessible = "Error : Accessing sitelist file, ";
inline constexpr const char* kSiteListNotDeleted = "Error : Failed to delete sitelist file, ";
inline constexpr const char* kSiteCacheInaccessible = "Error : Accessing sitecache file, ";
inline constexpr const char* kSiteCacheNotDeleted = "Error : Failed to delete sitecache file, ";
inline constexpr const char* kFileNotDeleted = "Error : Failed to delete file, ";

// Key files: of the source directory before the switch, and on their way into the installation.
inline constexpr const char* kKeyFileInaccessible = "Error : Accessing key file, ";
inline constexpr const char* kKeyFileMissing = "Error : Missing key file, ";
inline constexpr const char* kKeyFileNotCopied = "Error : Failed to copy key file, ";
inline constexpr const char* kKeyFileNotDeleted = "Error : Failed to delete key file, ";

// The managed switch. Some of these are followed by an empty line. Each of them ends it.
inline constexpr const char* kNoCompleteSource =
    "Error : For managed mode, sitelist file and all key files could not be found for processing.\n";
inline constexpr const char* kSiteListNotLoaded = "Error : Fail to load sitelist file";
inline constexpr const char* kServerAddressMissing = "Error : Sitelist file invalid. Server ip not found.\n";
inline constexpr const char* kSiteListNotCopied = "Error : Failed to copy sitelist file.\n";

/// The summary of a source directory with a site list whose key files are not complete.
[[nodiscard]] inline std::string keyFilesIncomplete(const std::string& sourceDir) {
  return "Error : For managed mode, although sitelist file found in " + sourceDir +
         ", all key files not present or accessible.";
}

// The unmanaged switch. Both end it, with nothing changed.
inline constexpr const char* kInstalledSiteListMissing =
    "Error : For unmanaged mode, sitelist file not found for processing.";
inline constexpr const char* kInstalledSiteListNotLoaded = "Error : For unmanaged mode, sitelist file failed to load.";

}  // namespace kelt::modes::messages
