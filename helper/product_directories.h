#pragma once
// The directories of the agent's products, in the order in which the system lists them.

#include <dirent.h>
#include <memory>
#include <optional>
#include <string>

namespace kelt::helper {

/// Steps through the directories in one directory. Symbolic links to directories count as such; nothing is sorted.
class ProductDirectories {
 public:
  /// Opens `directory`. bOpen tells whether that was possible.
  explicit ProductDirectories(const std::string& directory);

  [[nodiscard]] bool bOpen() const { return m_stream != nullptr; }

  /// The descriptor of the open directory, which stays with this object.
  [[nodiscard]] int descriptor() const { return ::dirfd(m_stream.get()); }

  /// The name of the next entry that is a directory; nothing when there is none left, or the directory is not open.
  [[nodiscard]] std::optional<std::string> next();

 private:
  struct Close {
    void operator()(DIR* stream) const { ::closedir(stream); }
  };
  std::unique_ptr<DIR, Close> m_stream;
};

/// Whether a product's directory of that name is the agent's own.
[[nodiscard]] bool bAgentDirectory(const std::string& name);

/// What keeps the configuration directory from being used, if anything does.
enum class ConfigDirState {
  kUsable,
  kInaccessible,      ///< cannot be examined
  kWritableByOthers,  ///< belongs to somebody other than root, or others may write to it
  kUnreadable,        ///< is fine, but cannot be opened
};

/// Judges the configuration directory behind `directories`, which was opened from `path`. Where it is open, what was
/// opened is judged, whatever stands at `path` meanwhile.
[[nodiscard]] ConfigDirState judgeConfigDir(const ProductDirectories& directories, const std::string& path);

}  // namespace kelt::helper
