#include "base/sweep.h"

#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

#include "base/temporary_file.h"
#include "base/unique_fd.h"

namespace kelt::base {
namespace {

struct CloseListing {
  void operator()(DIR* listing) const { ::closedir(listing); }
};
using Listing = std::unique_ptr<DIR, CloseListing>;

Listing listingOf(int directory) {
  // Opened anew: a listing moves the offset of its descriptor, and the caller's may be open for looking up only.
  UniqueFd fd(::openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  Listing listing(fd ? ::fdopendir(fd.get()) : nullptr);
  if (listing) static_cast<void>(fd.release());
  return listing;
}

bool bOurs(int directory, const char* name) {
  struct stat info {};
  return ::fstatat(directory, name, &info, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(info.st_mode) &&
         info.st_uid == ::geteuid() && info.st_nlink == 1;
}

}  // namespace

std::vector<std::string> sweepDirectory(int directory) {
  std::vector<std::string> removed;
  const Listing listing = listingOf(directory);
  if (!listing) return removed;
  while (const dirent* entry = ::readdir(listing.get())) {  // NOLINT(concurrency-mt-unsafe): a listing of our own
    const char* name = &entry->d_name[0];
    if (!bTemporaryName(name) || !bOurs(directory, name)) continue;
    // Noted before it is removed, as want of memory must not leave out one that was.
    removed.emplace_back(name);
    if (::unlinkat(directory, name, 0) != 0) removed.pop_back();
  }
  return removed;
}

std::vector<std::string> sweepDirectory(const std::string& directory) {
  const UniqueFd fd(::open(directory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!fd) return {};
  std::vector<std::string> removed = sweepDirectory(fd.get());
  for (std::string& name : removed)
    name.insert(0, directory + "/");
  return removed;
}

}  // namespace kelt::base
