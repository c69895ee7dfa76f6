#include "helper/trusted_config.h"

#include <fcntl.h>
#include <string>

#include "base/file_replace.h"
#include "base/unique_fd.h"
#include "platform/astring.h"

namespace kelt::helper {
namespace {

bool bTrusted(const base::UniqueFd& fd, mode_t kind) {
  struct stat info {};
  return fd && ::fstat(fd.get(), &info) == 0 && (info.st_mode & S_IFMT) == kind && bOnlyRootWrites(info);
}

}  // namespace

bool bOnlyRootWrites(const struct stat& info) {
  return info.st_uid == 0 && (info.st_mode & S_IWOTH) == 0;
}

bool loadTrustedConfig(AgentConfig& config, const std::wstring& path) {
  const std::string file = quorvane_com::orv::tellcomn_wide_to_ansi(path);
  const base::UniqueFd directory(::open(base::directoryOf(file).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!bTrusted(directory, S_IFDIR)) return false;

  const std::string name = file.substr(file.rfind('/') + 1);
  const base::UniqueFd opened(::openat(directory.get(), name.c_str(), O_PATH | O_CLOEXEC));
  if (!bTrusted(opened, S_IFREG)) return false;
  // Through the descriptor the very file that was examined is read.
  return config.load(L"/proc/self/fd/" + std::to_wstring(opened.get()));
}

}  // namespace kelt::helper
