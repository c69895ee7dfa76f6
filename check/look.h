#pragma once
// Looking at one path.
// Nothing is opened: a FIFO would wait for a writer, and a device may act on being opened.

#include <string>
#include <sys/stat.h>     // IWYU pragma: keep
#include <sys/statvfs.h>  // IWYU pragma: keep

#include "base/result.h"

namespace kelt::check {

/// What stands at `path`, links followed, or with `bLink` the link itself. Errors: kNotFound; kSystem.
[[nodiscard]] Result<struct stat> lookAt(const std::string& path, bool bLink = false);

/// The file system that `path` is on. Errors likewise.
[[nodiscard]] Result<struct statvfs> fileSystemOf(const std::string& path);

/// Why nobody, root included, can change what stands at `path`, as the end of a sentence about it: its file system is
/// read-only, or it was given attributes against it ("i" and "a"). Null where neither is so, or the system tells
/// neither.
[[nodiscard]] const char* whyFixed(const std::string& path);

/// Whether something is mounted at `path`, so that it cannot be removed or renamed. False on systems before Linux 5.8,
/// which do not tell.
[[nodiscard]] bool bMountPoint(const std::string& path);

/// "directory", "symbolic link", "FIFO" and their like.
[[nodiscard]] const char* kindOf(const struct stat& info);

}  // namespace kelt::check
