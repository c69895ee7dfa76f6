#pragma once
// Files made anew in a directory that others can write to.

#include <span>
#include <string>

#include "base/result.h"
#include "base/unique_fd.h"

namespace kelt::provision {

/// A file on its way to its name: made exclusively (0600) under a temporary name that nobody can foresee, and renamed
/// when it is complete. Whatever stands under the name, a link that somebody planted for instance, is replaced, never
/// followed and never written through. A file that was not published is taken away by the destructor.
class FreshFile {
 public:
  /// Starts the file that shall be named `path`. Errors: kRefused when a directory stands there; kNotFound, kSystem.
  [[nodiscard]] static base::Result<FreshFile> create(const std::string& path);

  FreshFile(FreshFile&& other) noexcept = default;
  FreshFile& operator=(FreshFile&&) = delete;
  ~FreshFile();

  /// Appends `data`. Errors: kSystem.
  [[nodiscard]] base::Status write(std::span<const unsigned char> data);

  /// Makes the content durable and gives the file its name. Errors: kSystem; what stood there is then as it was.
  [[nodiscard]] base::Status publish();

 private:
  FreshFile(std::string path, std::string temporary, base::UniqueFd fd)
      : m_path(std::move(path)), m_temporary(std::move(temporary)), m_fd(std::move(fd)) {}

  std::string m_path;
  std::string m_temporary;
  base::UniqueFd m_fd;  // open as long as the temporary name stands
};

/// Whether `path` is a regular file of this process's user under one name, no link: nothing that somebody else put
/// there.
[[nodiscard]] bool bOwnFile(const std::string& path);

}  // namespace kelt::provision
