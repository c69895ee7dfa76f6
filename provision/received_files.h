#pragma once
// The files in the directory that a package was unpacked into.

#include <string>

namespace kelt::provision {

/// Whether `path` is a regular file of this process's user under one name, no link: nothing that somebody else put
/// there.
[[nodiscard]] bool bOwnFile(const std::string& path);

}  // namespace kelt::provision
