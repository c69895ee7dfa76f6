#include "base/fresh_file.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>

#include "base/file_replace.h"

namespace kelt::base {

Result<FreshFile> FreshFile::create(const std::string& path) {
  DeferredSignals signals;
  auto place = openPlace(path);
  if (!place) return place.error();
  const int directory = place.value().directory.get();
  // Else it would show only when all is written and the file is to take its name.
  struct stat info {};
  const int looked = ::fstatat(directory, place.value().name.c_str(), &info, AT_SYMLINK_NOFOLLOW);
  if (looked == 0 && S_ISDIR(info.st_mode)) return Error{ErrorKind::kRefused, EISDIR, path + " is a directory"};
  auto file = TemporaryFile::create(directory, place.value().name);
  if (!file) return file.error();
  // Only now, as the file system may have a better reason to refuse. What cannot be synced cannot be promised.
  if (!place.value().bSyncable) return systemError("open the directory of " + path, EACCES);
  // The umask may have left less.
  if (::fchmod(file.value().fd(), 0600) != 0) return systemError("give a file its permissions");
  return FreshFile(std::move(signals), std::move(place).value(), std::move(file).value());
}

Status FreshFile::write(std::span<const unsigned char> data) {
  return writeAll(m_file.fd(), data);
}

Status FreshFile::publish() {
  return m_file.publish(m_place);
}

Status makeFreshFile(const std::string& path, std::string_view text) {
  auto file = FreshFile::create(path);
  if (!file) return file.error();
  if (auto done = file.value().write({reinterpret_cast<const unsigned char*>(text.data()), text.size()}); !done)
    return done;
  return file.value().publish();
}

}  // namespace kelt::base
