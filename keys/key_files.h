#pragma once
// The key files of one directory: the server's public key and the secret key for requests to it, each in its form of
// 2048 bits and in the one of 1024 bits, and the marker that says which mode the server wants the agent in.

#include <array>
#include <cstddef>
#include <string>

namespace kelt::keys {

/// Full paths (UTF-8) of the files in the directory that an import takes its keys from.
struct KeyFiles {
  std::string serverKey2048;
  std::string requestKey2048;
  std::string serverKey;
  std::string requestKey;
  std::string fipsMarker;
};

inline constexpr std::size_t kKeyFileCount = 5;

/// All of them, in the order in which they are deleted.
[[nodiscard]] std::array<const std::string*, kKeyFileCount> inOrder(const KeyFiles& files);

/// The paths below `directory`, joined by a "/" whatever it ends in.
[[nodiscard]] KeyFiles keyFilesIn(const std::string& directory);

/// The directory to import from: the update directory or the installation directory. May end in "/"; need not be there.
[[nodiscard]] std::string keyDirectory(bool fromUpdateDir);

/// Whether there is a readable file at `path` that is not empty: what counts as a key file (modes/config_values.h).
[[nodiscard]] bool bFileExists(const std::string& path);

/// Whether the first byte of the marker at that path says FIPS mode ('1'). False where the file cannot be read, of
/// which the system is asked twice.
[[nodiscard]] bool bMarkerSaysFips(const std::string& fipsMarker);

/// Deletes all five files in their order, with a line on the console for each that could not be deleted, also where
/// it was not there. Goes on after a failure. The directory is not synced: a power cut may bring files back.
void deleteKeyFiles(const KeyFiles& files);

/// The same with a line in the agent's log for each that is there and could not be deleted.
void deleteKeyFilesInSilence(const KeyFiles& files);

}  // namespace kelt::keys
