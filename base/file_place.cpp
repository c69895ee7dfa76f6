#include "base/file_place.h"

#include <array>
#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

#include "base/retry.h"

namespace kelt::base {
namespace {

constexpr int kMostLinks = 40;

Error refused(const std::string& path) {
  return {ErrorKind::kRefused, 0, path + ": not a regular file"};
}

/// The path that the symbolic link at `place` leads to; nothing when no symbolic link stands there.
Result<std::optional<std::string>> followLink(const Place& place) {
  std::array<char, PATH_MAX> buffer{};
  const ssize_t length = ::readlinkat(place.directory.get(), place.name.c_str(), buffer.data(), buffer.size());
  if (length < 0 && (errno == EINVAL || errno == ENOENT)) return std::optional<std::string>{};
  if (length < 0) return systemError("read the link " + place.path);
  const std::string target(buffer.data(), static_cast<std::size_t>(length));
  return std::optional(target.front() == '/' ? target : directoryOf(place.path) + "/" + target);
}

}  // namespace

Result<Place> openPlace(const std::string& path) {
  if (path.empty() || path.back() == '/') return refused(path);
  const std::string directory = directoryOf(path);
  const auto open = [&](int flags) { return UniqueFd(::open(directory.c_str(), flags | O_DIRECTORY | O_CLOEXEC)); };
  Place place;
  place.directory = open(O_RDONLY);
  if (!place.directory && errno == EACCES) {
    place.bSyncable = false;
    place.directory = open(O_PATH);
  }
  if (!place.directory) return systemError("open " + directory);
  const std::size_t slash = path.rfind('/');
  place.name = slash == std::string::npos ? path : path.substr(slash + 1);
  place.path = path;
  return place;
}

Result<Place> findPlace(std::string path) {
  for (int links = 0; links <= kMostLinks; ++links) {
    auto place = openPlace(path);
    if (!place) return place;
    auto next = followLink(place.value());
    if (!next) return next.error();
    if (!next.value()) return place;
    path = *next.value();
  }
  return systemError("follow " + path, ELOOP);
}

Result<UniqueFd> openExisting(const Place& place) {
  struct stat info {};
  if (::fstatat(place.directory.get(), place.name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) {
    if (errno == ENOENT) return UniqueFd();
    return systemError("stat " + place.path);
  }
  if (!S_ISREG(info.st_mode)) return refused(place.path);
  constexpr int kFlags = O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
  UniqueFd fd(retryInterrupted([&] { return ::openat(place.directory.get(), place.name.c_str(), kFlags); }));
  if (!fd) return systemError("open " + place.path);
  if (::fstat(fd.get(), &info) != 0) return systemError("stat " + place.path);
  if (!S_ISREG(info.st_mode)) return refused(place.path);
  return fd;
}

Status syncDirectory(int fd, const std::string& name) {
  if (retryInterrupted([&] { return ::fsync(fd); }) == 0 || errno == EINVAL) return {};
  return systemError("sync " + name);
}

Status syncDirectory(const std::string& directory) {
  const UniqueFd fd(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!fd) return systemError("open " + directory);
  return syncDirectory(fd.get(), directory);
}

std::string directoryOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

}  // namespace kelt::base
