#include "platform/interprocess_write_lock.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "device_paths.h"
#include "services/alarmed_wait.h"

#include "base/file_lock.h"
#include "base/result.h"
#include "base/retry.h"
#include "platform/refusals.h"

namespace {

using kelt::Error;
using kelt::ErrorKind;
using kelt::Result;
using kelt::Status;
using kelt::base::FileLock;
using kelt::base::retryInterrupted;
using kelt::base::systemError;
using kelt::base::UniqueFd;
using kelt::platform::AlarmedWait;

/// A name with a slash leads out of the directory, and so does ".."; others with a point in front are hidden.
bool bPlainName(const std::string& name) {
  return !name.empty() && name.front() != '.' && name.find('/') == std::string::npos;
}

/// The path of the lock's file; empty for a name that no lock can have.
std::string pathOf(const std::string& name) {
  return bPlainName(name) ? std::string(kelt::platform::paths::kLockDir) + "/" + name : std::string();
}

Error refused(const std::string& path, const char* why) {
  return {ErrorKind::kRefused, 0, path + ": " + why};
}

/// An error where somebody other than `owner` could put or replace files in the directory.
Status judgeDirectory(const std::string& directory, uid_t owner) {
  struct stat info {};
  // The name itself: a link could lead elsewhere once it was judged.
  if (::lstat(directory.c_str(), &info) != 0) return systemError("examine " + directory);
  if (!S_ISDIR(info.st_mode)) return refused(directory, "is not a directory");
  if (info.st_uid != owner) return refused(directory, "belongs to somebody else");
  if ((info.st_mode & (S_IWGRP | S_IWOTH)) != 0) return refused(directory, "can be written by others");
  return {};
}

/// Makes the directory if it is missing, and judges it.
Status safeDirectory() {
  const std::string directory = kelt::platform::paths::kLockDir;
  if (::mkdir(directory.c_str(), 0700) != 0 && errno != EEXIST) return systemError("make " + directory);
  return judgeDirectory(directory, ::geteuid());
}

/// An error where somebody other than `owner` can have opened the file, or can open it. No link at all means that it
/// was just removed, which shows once it is locked.
Status judgeFile(const struct stat& info, const std::string& path, uid_t owner) {
  if (!S_ISREG(info.st_mode)) return refused(path, "is not a regular file");
  if (info.st_uid != owner) return refused(path, "belongs to somebody else");
  if (info.st_nlink > 1) return refused(path, "has other names");
  // Whoever can open it can hold its lock, and so keep every run waiting.
  if ((info.st_mode & 077U) != 0) return refused(path, "can be opened by others");
  return {};
}

Status safeFile(int fd, const std::string& path) {
  struct stat info {};
  if (::fstat(fd, &info) != 0) return systemError("examine " + path);
  return judgeFile(info, path, ::geteuid());
}

Result<UniqueFd> openLockFile(const std::string& path) {
  if (path.empty()) return Error{ErrorKind::kNotFound, 0, "no name of a lock"};
  if (const Status safe = safeDirectory(); !safe) return safe.error();
  // Whatever stands there is only opened, neither followed nor waited for, and judged by the descriptor then.
  constexpr int kFlags = O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
  UniqueFd fd(retryInterrupted([&] { return ::open(path.c_str(), kFlags, 0600); }));
  if (!fd) return systemError("open " + path);
  if (const Status safe = safeFile(fd.get(), path); !safe) return safe.error();
  return fd;
}

/// Whether the locked file is the one that its path names: another process may have removed it before the lock came.
bool bNamedYet(int fd, const std::string& path) {
  struct stat held {};
  return ::fstat(fd, &held) == 0 && kelt::base::bStillNamed(path, held);
}

bool takeAtOnce(int fd) {
  return kelt::base::tryFileLock(fd, FileLock::kExclusive);
}

bool takeWaiting(int fd, const AlarmedWait& wait) {
  while (!wait.bOver()) {
    if (kelt::base::waitForFileLock(fd, FileLock::kExclusive)) return true;
    // Any signal may have come; only the alarm ends the wait.
    if (errno != EINTR) return false;
  }
  return false;
}

/// Opens the file at `path` and locks it by `take`, again as long as it is removed meanwhile and `bGoOn` holds.
/// No descriptor when that did not come to a lock.
template <typename Take, typename GoOn>
UniqueFd acquire(const std::string& path, Take take, GoOn bGoOn) {
  do {
    auto fd = openLockFile(path);
    if (!fd) kelt::platform::logRefusal(fd.error());
    if (!fd || !take(fd.value().get())) return {};
    if (bNamedYet(fd.value().get(), path)) return std::move(fd).value();
  } while (bGoOn());
  return {};
}

/// A probe starts again only this often when the file is removed under it.
constexpr int kProbes = 100;

}  // namespace

InterProcessWriteLock::InterProcessWriteLock(const std::string& name) : m_path(pathOf(name)) {}

InterProcessWriteLock::~InterProcessWriteLock() {
  static_cast<void>(unlock());
}

bool InterProcessWriteLock::lock(unsigned int seconds) {
  // Mostly it is free, and then the caller's alarm and its handler are left alone.
  if (tryLock() != 0) return true;
  const AlarmedWait wait(seconds);
  m_fd = acquire(
      m_path, [&](int fd) { return takeWaiting(fd, wait); }, [&] { return !wait.bOver(); });
  return m_fd.bValid();
}

bool InterProcessWriteLock::unlock() {
  if (!m_fd) return false;
  // Not left to the closing alone: a child between fork and exec still has the descriptor.
  const bool bReleased = kelt::base::releaseFileLock(m_fd.get());
  m_fd.reset();
  return bReleased;
}

int InterProcessWriteLock::tryLock() {
  if (m_fd) return 1;
  m_fd = acquire(m_path, takeAtOnce, [probes = kProbes]() mutable { return --probes > 0; });
  return m_fd ? 1 : 0;
}

Result<bool> InterProcessWriteLock::held(const std::string& name, uid_t owner) {
  const std::string path = pathOf(name);
  // Where there is no file there is no lock: every run makes it before it takes it.
  const auto unlessMissing = [](const Error& error) -> Result<bool> {
    return error.kind == ErrorKind::kNotFound ? Result<bool>(false) : error;
  };
  if (path.empty()) return refused(name, "is no name of a lock");
  const Status safe = judgeDirectory(kelt::platform::paths::kLockDir, owner);
  if (!safe) return unlessMissing(safe.error());
  // Before it is opened: whoever only looks should not open what strangers may have put there.
  struct stat info {};
  if (::lstat(path.c_str(), &info) != 0) return unlessMissing(systemError("examine " + path));
  if (const Status judged = judgeFile(info, path, owner); !judged) return judged.error();
  constexpr int kFlags = O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
  const UniqueFd fd(retryInterrupted([&] { return ::open(path.c_str(), kFlags); }));
  if (!fd) return unlessMissing(systemError("open " + path));
  const auto other = kelt::base::lookForOtherLock(fd.get());
  if (!other) return systemError("examine the lock of " + path);
  return *other;
}

void InterProcessWriteLock::cleanSemaphore(const std::string& name) {
  const std::string path = pathOf(name);
  if (!path.empty()) ::unlink(path.c_str());
}
