#include "platform/afile.h"

#include <cerrno>
#include <exception>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "base/file_read.h"
#include "base/file_replace.h"
#include "base/retry.h"
#include "base/utf.h"
#include "platform/refusals.h"

namespace {

using kelt::base::UniqueFd;

std::string narrow(const AString& path) {
  return kelt::base::toUtf8(path.str());
}

bool bAbsent(int error) {
  return error == ENOENT || error == ENOTDIR;
}

/// Errors of faccessat that say no, and not that the question could not be answered.
bool bDenied(int error) {
  return error == EACCES || error == EPERM || error == EROFS || error == ETXTBSY;
}

int modeFor(AFiler::AFileAccess access) {
  switch (access) {
    case AFiler::kRead:
      return R_OK;
    case AFiler::kWrite:
      return W_OK;
    case AFiler::kExistence:
      break;
  }
  return F_OK;
}

/// What a question about a file came to.
enum class Finding { kAbsent, kDenied, kAccessible, kUnknown };

/// Looks first whether the file is there at all, because an EACCES of the second question alone could come from the
/// file or from a directory above it.
Finding examine(const std::string& path, AFiler::AFileAccess access) {
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0) return bAbsent(errno) ? Finding::kAbsent : Finding::kUnknown;
  // By the effective user, as whom the file will be opened; access(2) asks for the real one.
  if (::faccessat(AT_FDCWD, path.c_str(), modeFor(access), AT_EACCESS) == 0) return Finding::kAccessible;
  if (bAbsent(errno)) return Finding::kAbsent;
  return bDenied(errno) ? Finding::kDenied : Finding::kUnknown;
}

bool bRegular(int fd) {
  struct stat info {};
  return ::fstat(fd, &info) == 0 && S_ISREG(info.st_mode);
}

/// Asked before opening, because merely opening a device can have an effect.
bool bRegular(const std::string& path) {
  struct stat info {};
  return ::lstat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode);
}

/// The file at `path`, made 0600 whatever the umask is where there is none.
UniqueFd openOrCreate(const std::string& path) {
  constexpr int kFlags = O_WRONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
  const auto open = [&](int more) {
    return UniqueFd(kelt::base::retryInterrupted([&] { return ::open(path.c_str(), kFlags | more, 0600); }));
  };
  // Made first, opened second: only so is it known whose mode it is, the file's own or ours to set.
  UniqueFd made = open(O_CREAT | O_EXCL);
  if (!made) return errno == EEXIST && bRegular(path) ? open(0) : UniqueFd();
  // The umask may have left less.
  if (::fchmod(made.get(), 0600) != 0) return {};
  return made;
}

/// Does `work`, and returns what it returns; false also for want of memory.
template <typename Work>
bool attempt(const Work& work) noexcept {
  try {
    return work();
  } catch (const std::exception&) {
    return false;
  }
}

bool readWhole(const AString& path, ABuffer& content) {
  return attempt([&] {
    const auto bytes = kelt::base::readFile(narrow(path));
    if (bytes) {
      // Only now, so that a failure leaves the caller what it had.
      content = ABuffer(bytes.value());
    } else {
      kelt::platform::logRefusal(bytes.error());
    }
    return bytes.ok();
  });
}

}  // namespace

bool AFiler::getFileAccessibility(const AString& path, AFileAccess access, bool& exists) {
  bool bAccessible = false;
  bool bThere = false;
  if (!getFileAccessibility(path, access, bAccessible, bThere)) return false;
  // A file that the caller cannot use is to it as one that is not there.
  exists = bAccessible && bThere;
  return true;
}

bool AFiler::getFileAccessibility(const AString& path, AFileAccess access, bool& accessible, bool& exists) {
  Finding finding = Finding::kUnknown;
  const auto look = [&] {
    finding = examine(narrow(path), access);
    return finding != Finding::kUnknown;
  };
  if (!attempt(look)) return false;
  accessible = finding == Finding::kAccessible;
  exists = finding != Finding::kAbsent;
  return true;
}

bool AFiler::tryGetFileSize(const AString& path, std::uint64_t& size) {
  return attempt([&] {
    const auto known = kelt::base::regularFileSize(narrow(path));
    if (known) size = known.value();
    return known.ok();
  });
}

bool AFiler::deleteFile(const AString& path) {
  // Without a look before: unlink(2) refuses a directory by itself, and a look could be out of date.
  return attempt([&] { return ::unlink(narrow(path).c_str()) == 0; });
}

bool AFiler::copyFile(const AString& from, const AString& to) {
  return attempt([&] {
    const auto copied = kelt::base::copyFile(narrow(from), narrow(to));
    // What is missing, or fails for the system's reasons, is for the caller to tell, who knows what the copy was for.
    if (!copied && copied.error().kind == kelt::ErrorKind::kRefused) kelt::platform::logRefusal(copied.error());
    return copied.ok();
  });
}

bool AFile::readExisting(const AString& path, ABuffer& content) {
  return readWhole(path, content);
}

bool AFile::tryRead(const AString& path, ABuffer& content) {
  return readWhole(path, content);
}

bool AFile::write(const AString& path, const ABuffer& content) {
  return attempt([&] { return kelt::base::replaceFile(narrow(path), content.span()).ok(); });
}

bool AFile::openWrite(const AString& path, bool truncate) {
  close();
  return attempt([&] {
    UniqueFd fd = openOrCreate(narrow(path));
    if (!fd || !bRegular(fd.get())) return false;
    // After the judgement, so that nothing but a regular file loses its content.
    if (truncate && ::ftruncate(fd.get(), 0) != 0) return false;
    m_fd = std::move(fd);
    return true;
  });
}

bool AFile::openAlways(const AString& path) {
  return openWrite(path, false);
}

void AFile::close() {
  m_fd.reset();
}
