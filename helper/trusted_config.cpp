#include "helper/trusted_config.h"

#include <string>

#include "base/file_replace.h"
#include "platform/astring.h"

namespace kelt::helper {
namespace {

bool bTrusted(const std::string& path, mode_t kind) {
  struct stat info {};
  return ::stat(path.c_str(), &info) == 0 && (info.st_mode & S_IFMT) == kind && bOnlyRootWrites(info);
}

}  // namespace

bool bOnlyRootWrites(const struct stat& info) {
  return info.st_uid == 0 && (info.st_mode & S_IWOTH) == 0;
}

bool loadTrustedConfig(AgentConfig& config, const std::wstring& path) {
  const std::string file = quorvane_com::orv::tellcomn_wide_to_ansi(path);
  // Nobody else can exchange the file between this look and the reading: the directory is root's too.
  if (!bTrusted(base::directoryOf(file), S_IFDIR) || !bTrusted(file, S_IFREG)) return false;
  return config.load(path);
}

}  // namespace kelt::helper
