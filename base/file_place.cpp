#include "base/file_place.h"

#include <array>
#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "base/retry.h"

namespace kelt::base {
namespace {

Error refused(const std::string& path) {
  return {ErrorKind::kRefused, 0, path + ": not a regular file"};
}

/// `path` as it is meant in the directory `directory`.
std::string pathFrom(const std::string& directory, const std::string& path) {
  if (directory.empty() || path.starts_with('/')) return path;
  return directory.back() == '/' ? directory + path : directory + "/" + path;
}

}  // namespace

Result<Place> openPlace(const std::string& path) {
  return openPlace(AT_FDCWD, {}, path);
}

Result<Place> openPlace(int from, const std::string& fromPath, const std::string& path) {
  // What ends in a slash means a directory, and no file can take its place.
  if (path.empty() || path.back() == '/') return refused(pathFrom(fromPath, path));
  const std::string directory = directoryOf(path);
  const auto open = [&](int flags) {
    return UniqueFd(::openat(from, directory.c_str(), flags | O_DIRECTORY | O_CLOEXEC));
  };
  Place place;
  place.path = pathFrom(fromPath, path);
  // A directory that may be entered but not read serves for looking up and opening; only syncing it needs more.
  place.directory = open(O_RDONLY);
  if (!place.directory && errno == EACCES) {
    place.bSyncable = false;
    place.directory = open(O_PATH);
  }
  if (!place.directory) return systemError("open " + directoryOf(place.path));
  place.name = path.substr(path.rfind('/') + 1);
  return place;
}

Result<std::optional<Place>> followLink(const Place& place) {
  // No link is longer on Linux, so none is cut off.
  std::array<char, PATH_MAX> buffer{};
  const ssize_t length = ::readlinkat(place.directory.get(), place.name.c_str(), buffer.data(), buffer.size());
  // EINVAL: what stands there is no link.
  if (length < 0 && (errno == EINVAL || errno == ENOENT)) return std::optional<Place>{};
  if (length < 0) return systemError("read the link " + place.path);
  const std::string target(buffer.data(), static_cast<std::size_t>(length));
  // From the directory that is held, not from its path: that may lead elsewhere by now.
  auto next = openPlace(place.directory.get(), directoryOf(place.path), target);
  if (!next) return next.error();
  return std::optional(std::move(next).value());
}

Result<Place> findPlace(const std::string& path) {
  auto place = openPlace(path);
  // Links can lead in a circle; the system itself gives up after as many, with the same error.
  for (int links = 0; place && links <= kMostLinks; ++links) {
    auto next = followLink(place.value());
    if (!next) return next.error();
    if (!next.value()) return place;
    place = std::move(*next.value());
  }
  if (!place) return place;
  return systemError("follow " + path, ELOOP);
}

Result<UniqueFd> openExisting(const Place& place) {
  struct stat info {};
  // Looked at before it is opened: merely opening a FIFO or a device can have an effect. And once more by the
  // descriptor, since another file may have come there in between.
  if (::fstatat(place.directory.get(), place.name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) {
    if (errno == ENOENT) return UniqueFd();
    return systemError("stat " + place.path);
  }
  if (!S_ISREG(info.st_mode)) return refused(place.path);
  // What may have come there since the look is not followed, and not waited for, as the writer of a FIFO would be.
  constexpr int kFlags = O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
  UniqueFd fd(retryInterrupted([&] { return ::openat(place.directory.get(), place.name.c_str(), kFlags); }));
  if (!fd) return systemError("open " + place.path);
  if (::fstat(fd.get(), &info) != 0) return systemError("stat " + place.path);
  if (!S_ISREG(info.st_mode)) return refused(place.path);
  return fd;
}

Status syncDirectory(int fd, const std::string& name) {
  // What fsync(2) of a file does not do: after a power cut its new name may be missing, or the old one still be there.
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
