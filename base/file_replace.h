#pragma once
// Replacing files: a reader, and a device that comes back after a power cut, sees the old content or the new one. Each
// operation goes through base/temporary_file.h; SIGINT, SIGTERM and SIGHUP wait until it is done.

#include <span>
#include <string>
#include <string_view>
#include <sys/types.h>

#include "base/file_place.h"  // IWYU pragma: export
#include "base/result.h"

namespace kelt::base {

/// How a file that does not exist yet is made.
struct NewFileAttributes {
  mode_t mode = 0600;     ///< permission bits, exact (the umask is not consulted)
  int attributesOf = -1;  ///< an open file whose owner, permission bits and extended attributes it gets instead
};

/// Replaces the file at `path` by `data`: a temporary file in the same directory, given the owner, permission bits and
/// extended attributes of the file that it replaces (or `ifNew` for a new one), filled, fsync, rename, fsync of the
/// directory. A symbolic link is resolved first and stays a link, dangling ones included. Where no temporary file can
/// be made beside the target or renamed over it (the file is a mount point, the directory is read-only), and only
/// there, the file is written in place, once there is room for all of it.
///
/// Errors: kRefused when something that is not a regular file stands there; kSystem. After an error the old content is
/// there and no temporary file, with two exceptions: a sync of the directory that fails after the rename leaves the new
/// content, of which a power cut may make the old one; and a file written in place may be neither.
[[nodiscard]] Status replaceFile(const std::string& path, std::span<const unsigned char> data,
                                 NewFileAttributes ifNew = {});

/// The same for text.
[[nodiscard]] Status replaceFile(const std::string& path, std::string_view text, NewFileAttributes ifNew = {});

/// The same for what stands under `path` itself, in a directory where somebody else may put a link at any moment: it is
/// refused (kRefused), or replaced when it comes too late for that, and never followed.
[[nodiscard]] Status replaceFileNotLink(const std::string& path, std::span<const unsigned char> data);

/// Replaces `to` by the content of the regular file `from`, in pieces, so that a large file takes no memory. An
/// existing `to` keeps its owner and mode, a new one gets the permission bits of `from` (set before any byte is
/// written). Where both are one file, through links or not, that is done already and nothing changes. Errors as
/// replaceFile; kNotFound or kRefused for `from`.
[[nodiscard]] Status copyFile(const std::string& from, const std::string& to);

/// Writes all of `data` to `fd`, continuing after partial writes and signals. Errors: kSystem.
[[nodiscard]] Status writeAll(int fd, std::span<const unsigned char> data);

}  // namespace kelt::base
