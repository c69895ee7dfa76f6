#include "base/file_read.h"

#include <algorithm>
#include <fcntl.h>
#include <sys/stat.h>

#include "base/retry.h"

namespace kelt::base {
namespace {

constexpr std::size_t kChunk = std::size_t{64} * 1024;

Error notRegular(const std::string& path) {
  return {ErrorKind::kRefused, 0, path + ": not a regular file"};
}

Error tooLarge(const std::string& name, std::size_t limit) {
  return {ErrorKind::kTooLarge, 0, name + ": over " + std::to_string(limit) + " bytes"};
}

/// The size that the file claims to have; 0 where it claims none.
std::uint64_t claimedSize(int fd) {
  struct stat info {};
  return ::fstat(fd, &info) == 0 && info.st_size > 0 ? static_cast<std::uint64_t>(info.st_size) : 0;
}

template <typename Buffer>
Result<Buffer> readWhole(int fd, const std::string& name, std::size_t limit) {
  const std::uint64_t claimed = claimedSize(fd);
  // Before any memory is taken for it.
  if (claimed > limit) return tooLarge(name, limit);
  Buffer content;
  // One byte more than claimed, so that an honest size needs a single read and a last one that finds the end.
  content.resize(claimed == 0 ? kChunk : static_cast<std::size_t>(claimed) + 1);
  std::size_t used = 0;
  while (true) {
    // Doubled, so that a file without a size, or one that grows, is not copied anew for each piece.
    if (used == content.size()) content.resize(used + std::max(used, kChunk));
    const ssize_t got = retryInterrupted([&] { return ::read(fd, content.data() + used, content.size() - used); });
    if (got < 0) return systemError("read " + name);
    if (got == 0) break;
    used += static_cast<std::size_t>(got);
    // The file may have grown since it was asked for its size.
    if (used > limit) return tooLarge(name, limit);
  }
  content.resize(used);
  return content;
}

template <typename Buffer>
Result<Buffer> readPath(const std::string& path, std::size_t limit) {
  const auto fd = openRegular(path);
  if (!fd) return fd.error();
  return readWhole<Buffer>(fd.value().get(), path, limit);
}

/// Looks before it opens: merely opening a FIFO or a device can have an effect.
Result<struct stat> examineRegular(const std::string& path) {
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0) return systemError("stat " + path);
  if (!S_ISREG(info.st_mode)) return notRegular(path);
  return info;
}

}  // namespace

Result<UniqueFd> openRegular(const std::string& path) {
  const auto examined = examineRegular(path);
  if (!examined) return examined.error();
  // Without waiting: a FIFO that came since the look would open only when somebody writes to it.
  UniqueFd fd(retryInterrupted([&] { return ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY); }));
  if (!fd) return systemError("open " + path);
  // Once more, by the descriptor: another file may have come there since the look.
  struct stat info {};
  if (::fstat(fd.get(), &info) != 0) return systemError("stat " + path);
  if (!S_ISREG(info.st_mode)) return notRegular(path);
  return fd;
}

Result<SecretBytes> readAll(int fd, const std::string& name, std::size_t limit) {
  return readWhole<SecretBytes>(fd, name, limit);
}

Result<SecretBytes> readFile(const std::string& path, std::size_t limit) {
  return readPath<SecretBytes>(path, limit);
}

Result<std::string> readText(const std::string& path, std::size_t limit) {
  return readPath<std::string>(path, limit);
}

Result<std::uint64_t> regularFileSize(const std::string& path) {
  const auto examined = examineRegular(path);
  if (!examined) return examined.error();
  return static_cast<std::uint64_t>(examined.value().st_size);
}

}  // namespace kelt::base
