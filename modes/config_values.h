#pragma once
// The agent's directories, its key files, and single values of its configuration file, edited as text.

#include <cstddef>
#include <optional>
#include <string>

namespace kelt::modes {

/// The most bytes of a configuration file that is edited.
/// A larger one is left alone: what was read in part would be written back in part.
inline constexpr std::size_t kMaxEditedConfig = 4095;

/// The installation and scratch directories, "/opt/Quorvane/orv/" and "/opt/Quorvane/orv/scratch/", both with the
/// trailing "/".
[[nodiscard]] std::wstring getORVConfPath();
[[nodiscard]] std::wstring getORVScratchPath();

/// Finds the agent's "config.xml" under "/etc/orv.d", whoever may write to that; leaves `path` unchanged when there is
/// none.
void getconfigPath(std::string& path);

/// Reads a file of at most 4095 bytes, up to its first zero byte. Returns 1, or 0 with `content` unchanged.
int load_file_to_buffer(const std::string& path, std::string& content);

/// `content` with `value` between the first "<name>" and the first "</name>" in it; nothing where one of the tags is
/// missing.
[[nodiscard]] std::optional<std::string> withValue(const std::string& content, const std::string& name,
                                                   std::string value);

/// Puts `value` between the first "<name>" and the first "</name>" of `content` and replaces the file at `path` by the
/// result. Returns false, with nothing written, where one of the tags is missing; a failed write is not reported and
/// leaves the file as it was.
bool update_value_to_file(const std::string& content, const std::string& name, std::string value, std::string& path);

/// Stores the server public key's hash as the text of "binsphash" in the agent's configuration file. Returns false,
/// with nothing changed, when the file is not found, too large, or has no such element.
bool bSetServerPublicKeyHashInfo(std::string hash);

/// Whether there is a readable regular file of more than 0 bytes at `path`.
/// An empty one counts as absent, as the switch itself makes the legacy form of a key when the server sent none. What
/// the system does not tell, though asked twice, counts as absent, too.
[[nodiscard]] bool bFileExists(std::wstring path);

}  // namespace kelt::modes
