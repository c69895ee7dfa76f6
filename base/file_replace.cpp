#include "base/file_replace.h"

#include <array>
#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

#include "base/file_attributes.h"
#include "base/file_read.h"
#include "base/retry.h"
#include "base/signals.h"
#include "base/temporary_file.h"

namespace kelt::base {
namespace {

constexpr int kMostLinks = 40;

/// Where a file is: its directory, held open so that nothing that happens to the path meanwhile matters, and its name.
struct Place {
  UniqueFd directory;
  std::string name;
  std::string path;  ///< for messages, and the start of a relative link
};

Error refused(const std::string& path) {
  return {ErrorKind::kRefused, 0, path + ": not a regular file"};
}

Result<Place> openPlace(const std::string& path) {
  const std::string directory = directoryOf(path);
  UniqueFd fd(::open(directory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!fd) return systemError("open " + directory);
  const std::size_t slash = path.rfind('/');
  return Place{std::move(fd), slash == std::string::npos ? path : path.substr(slash + 1), path};
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

/// The place of the file itself, behind any symbolic links, whether it exists or not.
Result<Place> findPlace(std::string path) {
  for (int links = 0; links <= kMostLinks; ++links) {
    if (path.empty() || path.back() == '/') return refused(path);
    auto place = openPlace(path);
    if (!place) return place;
    auto next = followLink(place.value());
    if (!next) return next.error();
    if (!next.value()) return place;
    path = *next.value();
  }
  return systemError("follow " + path, ELOOP);
}

/// Opens the file that stands at `place`: no descriptor when there is none.
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

Status sync(int fd, const std::string& what) {
  if (retryInterrupted([&] { return ::fsync(fd); }) != 0) return systemError("sync " + what);
  return {};
}

Status syncDirectoryFd(int fd, const std::string& directory) {
  auto done = sync(fd, directory);
  if (!done && done.error().sysErrno == EINVAL) return {};
  return done;
}

Result<UniqueFd> openForSync(int parent, const std::string& directory) {
  UniqueFd fd(::openat(parent, directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!fd) return systemError("open " + directory);
  return fd;
}

/// Takes the blocks for `size` bytes before anything is overwritten, so that a full disk shows while nothing is lost.
Status reserve(int fd, std::size_t size, const std::string& path) {
  if (size == 0) return {};
  const auto length = static_cast<off_t>(size);
  if (retryInterrupted([&] { return ::fallocate(fd, FALLOC_FL_KEEP_SIZE, 0, length); }) == 0) return {};
  if (errno == EOPNOTSUPP || errno == ENOSYS) return {};
  return systemError("reserve space for " + path);
}

/// Cuts the file off only after all is written: a run that ends in between leaves no empty file.
Status writeInPlace(const Place& place, std::span<const unsigned char> data) {
  constexpr int kFlags = O_WRONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
  const UniqueFd fd(retryInterrupted([&] { return ::openat(place.directory.get(), place.name.c_str(), kFlags); }));
  if (!fd) return systemError("open " + place.path);
  struct stat info {};
  if (::fstat(fd.get(), &info) != 0) return systemError("stat " + place.path);
  if (!S_ISREG(info.st_mode)) return refused(place.path);
  if (auto done = reserve(fd.get(), data.size(), place.path); !done) return done;
  if (auto done = writeAll(fd.get(), data); !done) return done;
  if (retryInterrupted([&] { return ::ftruncate(fd.get(), static_cast<off_t>(data.size())); }) != 0) {
    return systemError("cut off " + place.path);
  }
  return sync(fd.get(), place.path);
}

/// Whether a failure to create a file beside the target says that nothing at all can be created there. A full disk, for
/// one, does not: writing in place would then lose the old content too.
bool bDirectoryClosed(const Error& error) {
  return error.sysErrno == EROFS || error.sysErrno == EACCES;
}

/// Whether renaming failed because the target is a mount point of its own. Kernels that do not tell are believed.
bool bMountPoint(const Error& error, const Place& place) {
  if (error.sysErrno != EBUSY) return false;
  struct statx info {};
  const int flags = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT;
  if (::statx(place.directory.get(), place.name.c_str(), flags, 0, &info) != 0) return false;
  return (info.stx_attributes_mask & STATX_ATTR_MOUNT_ROOT) == 0 || (info.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
}

/// What a replacement comes to: the target must be written in place instead, or not.
enum class Outcome { kReplaced, kOnlyInPlace };

Status fill(int fd, int existing, std::span<const unsigned char> data, NewFile created) {
  if (existing >= 0) {
    if (auto done = copyAttributes(existing, fd); !done) return done;
  } else if (::fchmod(fd, created.mode & 07777U) != 0) {
    return systemError("give a file its permissions");
  }
  if (auto done = writeAll(fd, data); !done) return done;
  return sync(fd, "a temporary file");
}

Result<Outcome> replaceByRename(const Place& place, int existing, std::span<const unsigned char> data,
                                NewFile created) {
  const auto directory = openForSync(place.directory.get(), ".");
  if (!directory && !bDirectoryClosed(directory.error())) return directory.error();
  auto temporary = TemporaryFile::create(place.directory.get(), place.name);
  if (!temporary) {
    if (existing >= 0 && bDirectoryClosed(temporary.error())) return Outcome::kOnlyInPlace;
    return temporary.error();
  }
  if (!directory) return directory.error();
  if (auto done = fill(temporary.value().fd(), existing, data, created); !done) return done.error();
  if (auto done = temporary.value().renameTo(place.name); !done) {
    if (existing >= 0 && bMountPoint(done.error(), place)) return Outcome::kOnlyInPlace;
    return done.error();
  }
  if (auto done = syncDirectoryFd(directory.value().get(), directoryOf(place.path)); !done) return done.error();
  return Outcome::kReplaced;
}

}  // namespace

Status replaceFile(const std::string& path, std::span<const unsigned char> data, NewFile created) {
  const DeferredSignals untilNothingIsLeftBehind;
  const auto place = findPlace(path);
  if (!place) return place.error();
  const auto existing = openExisting(place.value());
  if (!existing) return existing.error();
  const auto outcome = replaceByRename(place.value(), existing.value().get(), data, created);
  if (!outcome) return outcome.error();
  return outcome.value() == Outcome::kReplaced ? Status{} : writeInPlace(place.value(), data);
}

Status replaceFile(const std::string& path, std::string_view text, NewFile created) {
  return replaceFile(path, {reinterpret_cast<const unsigned char*>(text.data()), text.size()}, created);
}

Status copyFile(const std::string& from, const std::string& to) {
  const auto source = openRegular(from);
  if (!source) return source.error();
  struct stat info {};
  if (::fstat(source.value().get(), &info) != 0) return systemError("stat " + from);
  const auto content = readAll(source.value().get(), from);
  if (!content) return content.error();
  return replaceFile(to, content.value(), NewFile{info.st_mode & 0777U});
}

Status writeAll(int fd, std::span<const unsigned char> data) {
  while (!data.empty()) {
    const ssize_t written = retryInterrupted([&] { return ::write(fd, data.data(), data.size()); });
    if (written < 0) return systemError("write");
    if (written == 0) return systemError("write", EIO);
    data = data.subspan(static_cast<std::size_t>(written));
  }
  return {};
}

Status syncDirectory(const std::string& directory) {
  const auto fd = openForSync(AT_FDCWD, directory);
  if (!fd) return fd.error();
  return syncDirectoryFd(fd.value().get(), directory);
}

std::string directoryOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

}  // namespace kelt::base
