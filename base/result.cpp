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
  message.append(": ").append(::strerror_r(sysErrno, buffer.data(), buffer.size()));
  return {bMissing ? ErrorKind::kNotFound : ErrorKind::kSystem, sysErrno, std::move(message)};
}

}  // namespace kelt::base
