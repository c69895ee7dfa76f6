#pragma once
// The console texts of this folder, without their final line end. Those that end in a blank are followed by a path.

#include <string>

namespace kelt::modes::messages {

// Looking for the source directory, and the switches themselves.
inline constexpr const wchar_t* kSiteListInaccessible = L"Error : Accessing sitelist file, ";
inline constexpr const wchar_t* kSiteListNotDeleted = L"Error : Failed to delete sitelist file, ";
inline constexpr const wchar_t* kSiteCacheInaccessible = L"Error : Accessing sitecache file, ";
inline constexpr const wchar_t* kSiteCacheNotDeleted = L"Error : Failed to delete sitecache file, ";
inline constexpr const wchar_t* kFileNotDeleted = L"Error : Failed to delete file, ";

// Key files.
inline constexpr const wchar_t* kKeyFileInaccessible = L"Error : Accessing key file, ";
inline constexpr const wchar_t* kKeyFileMissing = L"Error : Missing key file, ";
inline constexpr const wchar_t* kKeyFileNotCopied = L"Error : Failed to copy key file, ";
inline constexpr const wchar_t* kKeyFileNotDeleted = L"Error : Failed to delete key file, ";

// The managed switch. Some of these are followed by an empty line.
inline constexpr const wchar_t* kNoCompleteSource =
    L"Error : For managed mode, sitelist file and all key files could not be found for processing.\n";
inline constexpr const wchar_t* kSiteListNotLoaded = L"Error : Fail to load sitelist file";
inline constexpr const wchar_t* kServerAddressMissing = L"Error : Sitelist file invalid. Server ip not found.\n";
inline constexpr const wchar_t* kSiteListNotCopied = L"Error : Failed to copy sitelist file.\n";

/// The summary of a source directory with a site list whose key files are not complete.
[[nodiscard]] inline std::wstring keyFilesIncomplete(const std::wstring& sourceDir) {
  return L"Error : For managed mode, although sitelist file found in " + sourceDir +
         L", all key files not present or accessible.";
}

// The unmanaged switch.
inline constexpr const wchar_t* kInstalledSiteListMissing =
    L"Error : For unmanaged mode, sitelist file not found for processing.";
inline constexpr const wchar_t* kInstalledSiteListNotLoaded =
    L"Error : For unmanaged mode, sitelist file failed to load.";

}  // namespace kelt::modes::messages
