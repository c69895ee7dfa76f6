#include "base/file_attributes.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <vector>

namespace kelt::base {
namespace {

constexpr std::size_t kLargestValue = std::size_t{64} * 1024;  // of an attribute, and of the list of their names
constexpr const char* kAccessList = "system.posix_acl_access";

/// Errors by which kernels and file systems say that they keep no such attributes: there is none to lose then.
bool bUnsupported(int error) {
  return error == ENOTSUP || error == ENOSYS;
}

/// Attributes that say something about the content. On another content they would give away rights (capabilities), or
/// make the kernel refuse the file (EVM and IMA).
bool bVouchesForContent(std::string_view name) {
  constexpr std::array<std::string_view, 3> kNames{"security.capability", "security.evm", "security.ima"};
  return std::find(kNames.begin(), kNames.end(), name) != kNames.end();
}

/// Attributes that the system sets on a new file by its own policy.
bool bSetBySystem(std::string_view name) {
  return name.substr(0, 9) == "security." || name.substr(0, 8) == "trusted.";
}

Status copyOwner(const struct stat& old, int to) {
  struct stat made {};
  if (::fstat(to, &made) != 0) return systemError("stat a temporary file");
  if (made.st_uid == old.st_uid && made.st_gid == old.st_gid) return {};
  if (::fchown(to, old.st_uid, old.st_gid) != 0) return systemError("give a file its owner");
  return {};
}

Result<std::vector<std::string>> attributeNames(int fd) {
  // The most that Linux lets a list be (XATTR_LIST_MAX), so that one call is enough.
  std::vector<char> list(kLargestValue);
  const ssize_t length = ::flistxattr(fd, list.data(), list.size());
  if (length < 0 && bUnsupported(errno)) return std::vector<std::string>{};
  if (length < 0) return systemError("list extended attributes");
  std::vector<std::string> names;
  const std::string_view all(list.data(), static_cast<std::size_t>(length));
  for (std::size_t at = 0; at < all.size(); at += names.back().size() + 1)
    names.emplace_back(all.data() + at);
  return names;
}

Status copyAttribute(int from, int to, const std::string& name) {
  std::vector<char> value(kLargestValue);
  const ssize_t length = ::fgetxattr(from, name.c_str(), value.data(), value.size());
  if (length >= 0 && ::fsetxattr(to, name.c_str(), value.data(), static_cast<std::size_t>(length), 0) == 0) return {};
  // ENODATA: somebody took it away after it was listed, so it is not lost here.
  if (bSetBySystem(name) || errno == ENODATA) return {};
  return systemError("copy the extended attribute " + name);
}

/// A new file may have inherited an access list from its directory, which would open it to more than `from` was.
Status dropInheritedAccessList(int to) {
  if (::fremovexattr(to, kAccessList) == 0 || errno == ENODATA || bUnsupported(errno)) return {};
  return systemError("remove an inherited access list");
}

}  // namespace

Status copyAttributes(int from, int to) {
  struct stat old {};
  if (::fstat(from, &old) != 0) return systemError("stat the file to replace");
  if (auto done = copyOwner(old, to); !done) return done;
  if (auto done = dropInheritedAccessList(to); !done) return done;
  const auto names = attributeNames(from);
  if (!names) return names.error();
  for (const std::string& name : names.value()) {
    if (bVouchesForContent(name)) continue;
    if (auto done = copyAttribute(from, to, name); !done) return done;
  }
  // Last, because giving the owner takes set-id bits away.
  if (::fchmod(to, old.st_mode & 07777U) != 0) return systemError("give a file its permissions");
  return {};
}

}  // namespace kelt::base
