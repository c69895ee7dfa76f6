#include "helper/product_directories.h"

#include <sys/stat.h>

#include "helper/agent_paths.h"
#include "helper/trusted_config.h"

namespace kelt::helper {
namespace {

bool bDirectoryIn(int directory, const std::string& name) {
  struct stat info {};
  return ::fstatat(directory, name.c_str(), &info, 0) == 0 && S_ISDIR(info.st_mode);
}

}  // namespace

ProductDirectories::ProductDirectories(const std::string& directory) : m_stream(::opendir(directory.c_str())) {}

std::optional<std::string> ProductDirectories::next() {
  if (!bOpen()) return std::nullopt;
  // NOLINTNEXTLINE(concurrency-mt-unsafe): the stream is this object's own
  while (const dirent* entry = ::readdir(m_stream.get())) {
    const std::string name = &entry->d_name[0];
    if (name != "." && name != ".." && bDirectoryIn(descriptor(), name)) return name;
  }
  return std::nullopt;
}

bool bAgentDirectory(const std::string& name) {
  return name.find(paths::kAgentMarker) != std::string::npos;
}

ConfigDirState judgeConfigDir(const ProductDirectories& directories, const std::string& path) {
  struct stat info {};
  const bool bOpen = directories.bOpen();
  const int examined = bOpen ? ::fstat(directories.descriptor(), &info) : ::stat(path.c_str(), &info);
  if (examined != 0) return ConfigDirState::kInaccessible;
  if (!bOnlyRootWrites(info)) return ConfigDirState::kWritableByOthers;
  return bOpen ? ConfigDirState::kUsable : ConfigDirState::kUnreadable;
}

}  // namespace kelt::helper
