#include "base/result.h"

#include <array>
#include <cerrno>
#include <cstring>

namespace kelt::base {

Error systemError(std::string_view what) {
  return systemError(what, errno);
}

Error systemError(std::string_view what, int sysErrno) {
  std::array<char, 128> buffer{};
  const bool bMissing = sysErrno == ENOENT || sysErrno == ENOTDIR;
  std::string message(what);
  // GNU's form of the function: what it returns may be a text of its own, and the buffer is then not used.
  message.append(": ").append(::strerror_r(sysErrno, buffer.data(), buffer.size()));
  return {bMissing ? ErrorKind::kNotFound : ErrorKind::kSystem, sysErrno, std::move(message)};
}

}  // namespace kelt::base
