#include "provision/fresh_file.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/file_replace.h"

namespace kelt::provision {

base::Result<FreshFile> FreshFile::create(const std::string& path) {
  struct stat info {};
  if (::lstat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode)) {
    return base::Error{base::ErrorKind::kRefused, EISDIR, path + " is a directory"};
  }
  std::string temporary = base::directoryOf(path) + "/.keltconfig-XXXXXX";
  base::UniqueFd fd(::mkostemp(temporary.data(), O_CLOEXEC));  // exclusive, 0600
  if (!fd) return base::systemError("create a file beside " + path);
  return FreshFile(path, std::move(temporary), std::move(fd));
}

FreshFile::~FreshFile() {
  if (m_fd) ::unlink(m_temporary.c_str());
}

base::Status FreshFile::write(std::span<const unsigned char> data) {
  return base::writeAll(m_fd.get(), data);
}

base::Status FreshFile::publish() {
  if (::fsync(m_fd.get()) != 0) return base::systemError("sync " + m_temporary);
  if (::rename(m_temporary.c_str(), m_path.c_str()) != 0) return base::systemError("rename to " + m_path);
  m_fd.reset();
  return base::syncDirectory(base::directoryOf(m_path));
}

bool bOwnFile(const std::string& path) {
  struct stat info {};
  return ::lstat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode) && info.st_uid == ::geteuid() && info.st_nlink == 1;
}

}  // namespace kelt::provision
