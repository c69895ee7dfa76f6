#include "base/file_replace.h"

#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <functional>
#include <sys/stat.h>
#include <unistd.h>

#include "base/file_attributes.h"
#include "base/file_read.h"
#include "base/retry.h"
#include "base/secret.h"
#include "base/signals.h"
#include "base/temporary_file.h"

namespace kelt::base {
namespace {

using Sink = std::function<Status(std::span<const unsigned char>)>;

/// Hands the whole new content to a sink, piece by piece. May be asked more than once.
using Content = std::function<Status(const Sink&)>;

Sink sinkInto(int fd) {
  return [fd](std::span<const unsigned char> piece) { return writeAll(fd, piece); };
}

Status sync(int fd, const std::string& what) {
  if (retryInterrupted([&] { return ::fsync(fd); }) != 0) return systemError("sync " + what);
  return {};
}

/// Takes the blocks for `size` bytes before anything is overwritten, so that a full disk shows while nothing is lost.
Status reserve(int fd, std::uint64_t size, const std::string& path) {
  // fallocate(2) refuses to reserve nothing.
  if (size == 0) return {};
  const auto length = static_cast<off_t>(size);
  // The size stays as it is: a run that ends before the first byte is written has then changed nothing.
  if (retryInterrupted([&] { return ::fallocate(fd, FALLOC_FL_KEEP_SIZE, 0, length); }) == 0) return {};
  // Such a file system tells that it is full only when it is written to. To refuse it would leave no way to write.
  if (errno == EOPNOTSUPP || errno == ENOSYS) return {};
  return systemError("reserve space for " + path);
}

/// The length of the content. A source that cannot be read shows here, while nothing is lost.
Result<std::uint64_t> lengthOf(const Content& content) {
  std::uint64_t length = 0;
  const Sink count = [&](std::span<const unsigned char> piece) {
    length += piece.size();
    return Status();
  };
  if (auto done = content(count); !done) return done.error();
  return length;
}

/// Opens the target itself. What was examined may have been exchanged since, so it is judged by the descriptor again.
Result<UniqueFd> openForWriting(const Place& place) {
  constexpr int kFlags = O_WRONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
  UniqueFd fd(retryInterrupted([&] { return ::openat(place.directory.get(), place.name.c_str(), kFlags); }));
  if (!fd) return systemError("open " + place.path);
  struct stat info {};
  if (::fstat(fd.get(), &info) != 0) return systemError("stat " + place.path);
  if (!S_ISREG(info.st_mode)) return Error{ErrorKind::kRefused, 0, place.path + ": not a regular file"};
  return fd;
}

/// Cuts the file off only after all is written: a run that ends in between leaves no empty file.
Status writeInPlace(const Place& place, const Content& content) {
  const auto target = openForWriting(place);
  if (!target) return target.error();
  const int fd = target.value().get();
  const auto length = lengthOf(content);
  if (!length) return length.error();
  if (auto done = reserve(fd, length.value(), place.path); !done) return done;
  if (auto done = content(sinkInto(fd)); !done) return done;
  const off_t end = ::lseek(fd, 0, SEEK_CUR);
  if (end < 0 || retryInterrupted([&] { return ::ftruncate(fd, end); }) != 0) {
    return systemError("cut off " + place.path);
  }
  return sync(fd, place.path);
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

/// Gives the temporary file owner, mode and attributes, and then the content: there is no moment at which somebody can
/// read it who could not read the file that it replaces.
Status fill(int fd, int existing, const Content& content, NewFileAttributes ifNew) {
  const int like = existing >= 0 ? existing : ifNew.attributesOf;
  if (like >= 0) {
    if (auto done = copyAttributes(like, fd); !done) return done;
  } else if (::fchmod(fd, ifNew.mode & 07777U) != 0) {
    return systemError("give a file its permissions");
  }
  return content(sinkInto(fd));
}

Result<Outcome> replaceByRename(const Place& place, int existing, const Content& content, NewFileAttributes ifNew) {
  auto temporary = TemporaryFile::create(place.directory.get(), place.name);
  if (!temporary) {
    // A file that does not exist cannot be written in place: making it is what was just refused.
    if (existing >= 0 && bDirectoryClosed(temporary.error())) return Outcome::kOnlyInPlace;
    return temporary.error();
  }
  // Nothing has changed yet, and what cannot be brought to the disk is not to be promised.
  if (!place.bSyncable) return systemError("open the directory of " + place.path, EACCES);
  TemporaryFile& file = temporary.value();
  if (auto done = fill(file.fd(), existing, content, ifNew); !done) return done.error();
  const Status published = file.publish(place);
  if (published) return Outcome::kReplaced;
  if (existing >= 0 && bMountPoint(published.error(), place)) return Outcome::kOnlyInPlace;
  return published.error();
}

Status replaceAt(const Place& place, int existing, const Content& content, NewFileAttributes ifNew) {
  const auto outcome = replaceByRename(place, existing, content, ifNew);
  if (!outcome) return outcome.error();
  return outcome.value() == Outcome::kReplaced ? Status{} : writeInPlace(place, content);
}

constexpr std::size_t kPiece = std::size_t{64} * 1024;

Status readPieces(int fd, const std::string& name, const Sink& sink) {
  SecretBytes piece(kPiece);
  // By places of its own, as the content may be asked for a second time, and then from its beginning again.
  for (off_t at = 0;;) {
    const ssize_t got = retryInterrupted([&] { return ::pread(fd, piece.data(), piece.size(), at); });
    if (got < 0) return systemError("read " + name);
    if (got == 0) return {};
    if (auto done = sink({piece.data(), static_cast<std::size_t>(got)}); !done) return done;
    at += got;
  }
}

bool bSameFile(const struct stat& source, int target) {
  struct stat info {};
  return target >= 0 && ::fstat(target, &info) == 0 && info.st_dev == source.st_dev && info.st_ino == source.st_ino;
}

Status replaceFileAt(const Result<Place>& place, std::span<const unsigned char> data, NewFileAttributes ifNew) {
  if (!place) return place.error();
  const auto existing = openExisting(place.value());
  if (!existing) return existing.error();
  const Content content = [data](const Sink& sink) { return sink(data); };
  return replaceAt(place.value(), existing.value().get(), content, ifNew);
}

}  // namespace

Status replaceFile(const std::string& path, std::span<const unsigned char> data, NewFileAttributes ifNew) {
  const DeferredSignals untilNothingIsLeftBehind;
  return replaceFileAt(findPlace(path), data, ifNew);
}

Status replaceFileNotLink(const std::string& path, std::span<const unsigned char> data) {
  const DeferredSignals untilNothingIsLeftBehind;
  return replaceFileAt(openPlace(path), data, {});
}

Status replaceFile(const std::string& path, std::string_view text, NewFileAttributes ifNew) {
  return replaceFile(path, {reinterpret_cast<const unsigned char*>(text.data()), text.size()}, ifNew);
}

Status copyFile(const std::string& from, const std::string& to) {
  const DeferredSignals untilNothingIsLeftBehind;
  const auto source = openRegular(from);
  if (!source) return source.error();
  struct stat info {};
  if (::fstat(source.value().get(), &info) != 0) return systemError("stat " + from);
  const auto place = findPlace(to);
  if (!place) return place.error();
  const auto existing = openExisting(place.value());
  if (!existing) return existing.error();
  // To write a file over itself could only lose something, above all in place.
  if (bSameFile(info, existing.value().get())) return {};
  const Content content = [&](const Sink& sink) { return readPieces(source.value().get(), from, sink); };
  // A new copy gets no set-id bits: it would lend the rights of whoever runs this tool.
  return replaceAt(place.value(), existing.value().get(), content, {.mode = info.st_mode & 0777U});
}

Status writeAll(int fd, std::span<const unsigned char> data) {
  while (!data.empty()) {
    const ssize_t written = retryInterrupted([&] { return ::write(fd, data.data(), data.size()); });
    if (written < 0) return systemError("write");
    // No progress and no error: to ask again could go on for ever.
    if (written == 0) return systemError("write", EIO);
    data = data.subspan(static_cast<std::size_t>(written));
  }
  return {};
}

}  // namespace kelt::base
