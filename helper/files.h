#pragma once
// The toolkit's operations on files (platform/afile.h) for paths in UTF-8. Each may throw std::bad_alloc.

#include <cstdint>
#include <optional>
#include <string>

#include "platform/abuffer.h"

namespace kelt::helper {

/// What the system tells of a file that somebody wants to use.
enum class Presence {
  kThere,
  kAbsent,   ///< it is not there, or not for this process
  kUnknown,  ///< it cannot be examined
};

/// Whether this process can read what stands at `path`, links followed. A directory counts.
[[nodiscard]] Presence presenceForReading(const std::string& path);

/// Whether anything stands at `path`, links followed, for this process to read or not.
[[nodiscard]] Presence presenceOf(const std::string& path);

/// The size in bytes of the regular file at `path`, links followed; nothing for whatever else is there.
[[nodiscard]] std::optional<std::uint64_t> sizeOf(const std::string& path);

/// The content of the regular file at `path`; nothing where it cannot be read.
[[nodiscard]] std::optional<ABuffer> contentOf(const std::string& path);

/// Removes a file or a symbolic link. Returns false when there is nothing to remove, for a directory, and on any other
/// error.
[[nodiscard]] bool deleteFile(const std::string& path);

/// Replaces `to` by the content of `from`. Returns false on any failure; `to` is then as it was, but for the exceptions
/// that AFiler::copyFile names.
[[nodiscard]] bool copyFile(const std::string& from, const std::string& to);

}  // namespace kelt::helper
