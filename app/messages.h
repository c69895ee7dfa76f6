#pragma once
// The console texts of this folder, without their final line end. The blanks in them belong to them, and so does an
// empty line before or after a text. docs/console.md lists all texts of the tool with the statuses that they come with.

#include <string>

namespace kelt::app::messages {

// The command line. Each of them ends the run with status 1.
inline constexpr const char* kNoOptions =
    "Invalid command line : No options specified. Use keltconfig -h or ? or --help for help ";
inline constexpr const char* kUnsupportedOption = "Unsupported option. Use keltconfig -h or ? or --help for help.";
inline constexpr const char* kMissingArgument = "Missing option argument.";

inline std::wstring argumentWithoutOption(const std::wstring& argument) {
  return L"Argument " + argument + L" passed without a valid option";
}

// Preparing the run. Both errors end it with status 8; an unknown mode is taken for non-FIPS.
inline constexpr const char* kNoCurrentDirectory = "Error : Failed to acquire current directory.";
inline constexpr const char* kCryptoModeUnknown = "Unable to find existing mode, assuming non_fips mode";

inline std::string directoryNotEntered(const std::string& path) {
  return "Error : Failed to change current directory to " + path;
}

// The work. A missing source directory and a file that cannot be deleted are told, and the run goes on.
inline constexpr const char* kVersion = "4.6.0.2545";
inline constexpr const char* kConflict = "\n there is a conflict ";
inline constexpr const char* kSourceDirMissing =
    "Error : -d option is missing for following files\n"
    "      1. sitelist &\n"
    "      2. keyfiles (for Zentor4.0 or higher)";

inline std::string fileNotDeleted(const std::string& path) {
  return "Error : Failed to delete file, " + path;
}

// On standard error, whatever the run was about.
inline constexpr const char* kOutOfMemory = "Error : Out of memory.";

// What the crypto library says, by level: a prefix and its own text.
inline constexpr const wchar_t* kLogPrefix = L"keltconfig\t";
inline constexpr const wchar_t* kInfoPrefix = L"keltconfig\t[I] ";
inline constexpr const wchar_t* kErrorPrefix = L"keltconfig\t[E] ";

}  // namespace kelt::app::messages
