#pragma once
// Reading whole files, and looking at files, without surprises.

#include <cstddef>
#include <cstdint>
#include <string>

#include "base/result.h"
#include "base/secret.h"
#include "base/unique_fd.h"

namespace kelt::base {

/// The most that a whole file is read into memory: 256 MiB.
inline constexpr std::size_t kMaxFileSize = std::size_t{256} * 1024 * 1024;

/// Opens a regular file for reading: close-on-exec, never waiting (a FIFO does not block), symbolic links followed.
/// Errors: kNotFound; kRefused for whatever is not a regular file; kSystem.
[[nodiscard]] Result<UniqueFd> openRegular(const std::string& path);

/// Reads from `fd` to its end. `name` is what messages call it. The memory is wiped when released. Errors: kTooLarge
/// over `limit` bytes; kSystem.
[[nodiscard]] Result<SecretBytes> readAll(int fd, const std::string& name, std::size_t limit = kMaxFileSize);

/// Reads a whole regular file, whatever its size says meanwhile. The memory is wiped when released, since any file may
/// hold a key. Errors as openRegular, and kTooLarge over `limit` bytes.
[[nodiscard]] Result<SecretBytes> readFile(const std::string& path, std::size_t limit = kMaxFileSize);

/// The same, but as text, whose memory is not wiped: for files that hold no secret.
[[nodiscard]] Result<std::string> readText(const std::string& path, std::size_t limit = kMaxFileSize);

/// The size in bytes of a regular file (symbolic links followed). Errors as openRegular.
[[nodiscard]] Result<std::uint64_t> regularFileSize(const std::string& path);

}  // namespace kelt::base
