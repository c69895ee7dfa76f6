#pragma once
// A file under a temporary name that takes another's place in one step, or leaves nothing behind.

#include <string>

#include "base/result.h"
#include "base/unique_fd.h"

namespace kelt::base {

/// A file beside the one that it is to become, named ".<name>.kelt-" and 12 characters that nobody can guess. The
/// directory is given as a descriptor, so that nothing that happens to its path meanwhile matters; it must outlive the
/// object.
class TemporaryFile {
 public:
  /// Creates it exclusively, 0600, open for writing. `name` is a plain file name, shortened where the whole would be
  /// over 255 bytes. Errors: kSystem, kNotFound when the directory is gone; nothing is left then.
  [[nodiscard]] static Result<TemporaryFile> create(int directory, const std::string& name);

  TemporaryFile(TemporaryFile&&) = default;
  TemporaryFile& operator=(TemporaryFile&&) = delete;
  /// Removes the file unless it was renamed.
  ~TemporaryFile();

  [[nodiscard]] int fd() const { return m_fd.get(); }

  /// Gives the file the name `name` in its directory, in place of whatever file has it. Errors: kSystem; the temporary
  /// file is then still there. Neither the data nor the directory is synced.
  [[nodiscard]] Status renameTo(const std::string& name);

 private:
  TemporaryFile(int directory, std::string name, UniqueFd fd);

  int m_directory;
  std::string m_name;
  UniqueFd m_fd;
};

}  // namespace kelt::base
