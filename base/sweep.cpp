#include "base/sweep.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/listing.h"
#include "base/temporary_file.h"
#include "base/unique_fd.h"

namespace kelt::base {
namespace {

Listing listingOf(int directory) {
  // Opened anew: a listing moves the offset of its descriptor, and the caller's may be open for looking up only.
  UniqueFd fd(::openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  Listing listing(fd ? ::fdopendir(fd.get()) : nullptr);
  if (listing) static_cast<void>(fd.release());
  return listing;
}

/// Whether a run of `owner` can have left what stands under that name. The pattern of the names is no secret: a link
/// could lead anywhere, a file of somebody else's is not ours to remove, and what has a second name is in use under
/// that.
bool bLeftBy(uid_t owner, int directory, const char* name) {
  if (!bTemporaryName(name)) return false;
  struct stat info {};
  return ::fstatat(directory, name, &info, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(info.st_mode) && info.st_uid == owner &&
         info.st_nlink == 1;
}

UniqueFd openDirectory(const std::string& directory) {
  return UniqueFd(::open(directory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
}

}  // namespace

Result<std::vector<std::string>> leftoversIn(const std::string& directory, uid_t owner) {
  const UniqueFd fd = openDirectory(directory);
  if (!fd) return systemError("open " + directory);
  const Listing listing = listingOf(fd.get());
  if (!listing) return systemError("list " + directory);
  // Whoever may list it, but not look into it, would see nothing but names.
  if (::faccessat(fd.get(), ".", X_OK, AT_EACCESS) != 0) return systemError("search " + directory);
  std::vector<std::string> found;
  while (const dirent* entry = ::readdir(listing.get())) {  // NOLINT(concurrency-mt-unsafe): a listing of our own
    if (bLeftBy(owner, fd.get(), &entry->d_name[0])) found.emplace_back(&entry->d_name[0]);
  }
  return found;
}

std::vector<std::string> sweepDirectory(int directory) {
  std::vector<std::string> removed;
  const Listing listing = listingOf(directory);
  if (!listing) return removed;
  while (const dirent* entry = ::readdir(listing.get())) {  // NOLINT(concurrency-mt-unsafe): a listing of our own
    const char* name = &entry->d_name[0];
    if (!bLeftBy(::geteuid(), directory, name)) continue;
    // Noted before it is removed, as want of memory must not leave out one that was.
    removed.emplace_back(name);
    if (::unlinkat(directory, name, 0) != 0) removed.pop_back();
  }
  return removed;
}

std::vector<std::string> sweepDirectory(const std::string& directory) {
  const UniqueFd fd = openDirectory(directory);
  if (!fd) return {};
  std::vector<std::string> removed = sweepDirectory(fd.get());
  for (std::string& name : removed)
    name.insert(0, directory + "/");
  return removed;
}

}  // namespace kelt::base
