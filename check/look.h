#pragma once
// Looking at one path.

#include <string>
#include <sys/stat.h>     // IWYU pragma: keep
#include <sys/statvfs.h>  // IWYU pragma: keep

#include "base/result.h"

namespace kelt::check {

/// What stands at `path`, links followed, or with `bLink` the link itself. Errors: kNotFound; kSystem.
[[nodiscard]] Result<struct stat> lookAt(const std::string& path, bool bLink = false);

/// The file system that `path` is on. Errors likewise.
[[nodiscard]] Result<struct statvfs> fileSystemOf(const std::string& path);

/// Whether a file at `path` was made so that it can neither be changed nor removed (attributes "i" and "a").
[[nodiscard]] bool bImmutable(const std::string& path);

/// "directory", "symbolic link", "FIFO" and their like.
[[nodiscard]] const char* kindOf(const struct stat& info);

}  // namespace kelt::check
