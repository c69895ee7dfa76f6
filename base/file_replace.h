#pragma once
// Replacing files: a reader, and a device that comes back after a power cut, sees the old content or the new one.

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <sys/types.h>

#include "base/result.h"

namespace kelt::base {

/// How a file that does not exist yet is made.
struct NewFile {
  mode_t mode = 0600;  ///< permission bits, exact (the umask is not consulted)
};

/// Replaces the file at `path` by `data`: a temporary file in the same directory (created exclusively, 0600), given the
/// owner, permission bits and extended attributes of the file that it replaces (or `created` for a new one), filled,
/// fsync, rename, fsync of the directory. A symbolic link is resolved first and stays a link, dangling ones included.
/// Where no temporary file can be made beside the target or renamed over it (the file is a mount point, the directory
/// is read-only), and only there, the file is written in place. Errors: kRefused when something that is not a regular
/// file stands there; kSystem. After an error the old content is there (except where it had to be written in place) and
/// no temporary file.
[[nodiscard]] Status replaceFile(const std::string& path, std::span<const unsigned char> data, NewFile created = {});

/// The same for text.
[[nodiscard]] Status replaceFile(const std::string& path, std::string_view text, NewFile created = {});

/// Replaces `to` by the content of the regular file `from`. An existing `to` keeps its owner and mode, a new one gets
/// the permission bits of `from` (set before any byte is written). Errors as replaceFile; kNotFound or kRefused for
/// `from`.
[[nodiscard]] Status copyFile(const std::string& from, const std::string& to);

/// Writes all of `data` to `fd`, continuing after partial writes and signals. Errors: kSystem.
[[nodiscard]] Status writeAll(int fd, std::span<const unsigned char> data);

/// Makes the directory entry changes of `directory` durable. Errors: kSystem. A file system that cannot sync a
/// directory (EINVAL) counts as done.
[[nodiscard]] Status syncDirectory(const std::string& directory);

/// The directory part of a path: "." where it has none, "/" for the root.
[[nodiscard]] std::string directoryOf(const std::string& path);

}  // namespace kelt::base
