#pragma once
// Clearing away what runs that were cut off left behind.

#include <string>
#include <sys/types.h>
#include <vector>

#include "base/result.h"

namespace kelt::base {

/// Removes from the open directory `directory` what a killed run or a power cut left of files on their way to a name:
/// regular files of this process's effective user under one name only, and that a name which base/temporary_file.h
/// gives. Nothing else is touched, no link followed. To be called by whoever holds the instance lock and has no
/// temporary file there itself. Returns the names that were removed; a directory that cannot be read has none.
[[nodiscard]] std::vector<std::string> sweepDirectory(int directory);

/// The same for a directory by its path. Returns whole paths.
[[nodiscard]] std::vector<std::string> sweepDirectory(const std::string& directory);

/// The names that a sweep of `directory` by the user `owner` would remove, in the order of the system. Nothing is
/// removed. Errors: kNotFound; kSystem, where this process may not list the directory or look into it.
[[nodiscard]] Result<std::vector<std::string>> leftoversIn(const std::string& directory, uid_t owner);

}  // namespace kelt::base
