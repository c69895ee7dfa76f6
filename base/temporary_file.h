#pragma once
// The one way in which this tool makes a file: out of sight first, and then in another's place in one step, or not at
// all.

#include <string>
#include <string_view>

#include "base/file_place.h"
#include "base/result.h"
#include "base/unique_fd.h"

namespace kelt::base {

/// A file that is to take a name in an open directory. The directory is given as a descriptor, so that nothing that
/// happens to its path meanwhile matters; it must stay open as long as the object lives. The steps are create, writing
/// through fd(), settle, and then renameTo or exchangeWith; publish is the usual end.
class TemporaryFile {
 public:
  /// Makes it, empty, open for writing, for no more than its owner's reading and writing (the umask takes away from
  /// that). It has no name until it is settled, so that not even a killed run leaves anything; where the file system or
  /// a missing /proc does not allow that, it is made exclusively under its temporary name: ".<name>.kelt-" and 12
  /// characters that nobody can guess, `name` (a plain file name) shortened where the whole would be over 255 bytes.
  /// Errors: kSystem, kNotFound when the directory is gone; nothing is left then.
  [[nodiscard]] static Result<TemporaryFile> create(int directory, std::string_view name);

  /// Gives what stands under `name`, whatever it is, a temporary name as well, for it to be put back later. Errors:
  /// kNotFound when nothing stands there; kSystem, where the file system gives no file two names for instance.
  [[nodiscard]] static Result<TemporaryFile> keep(int directory, const std::string& name);

  /// Takes the file over; `other` has none then.
  TemporaryFile(TemporaryFile&& other) noexcept;
  TemporaryFile& operator=(TemporaryFile&&) = delete;
  /// Removes whatever stands under the temporary name, unless it was renamed. Needs no memory and no descriptor.
  ~TemporaryFile();

  /// Open for writing until settle; -1 afterwards.
  [[nodiscard]] int fd() const { return m_fd.get(); }

  /// Gives the file its temporary name if it has none, puts its content on the disk, and closes it. Errors: kSystem.
  [[nodiscard]] Status settle();

  /// Gives the settled file the name `name` in its directory, in place of whatever file has it. Errors: kSystem; the
  /// temporary file is then still there. The directory is not synced.
  [[nodiscard]] Status renameTo(const std::string& name);

  /// All that is left to do with a file that goes to its place at once: settle, renameTo, and syncing the directory.
  /// `place` is where it was created. Errors: kSystem; what stood there is then as it was, unless only the sync of the
  /// directory failed, of which a power cut may make the old one again.
  [[nodiscard]] Status publish(const Place& place);

  /// Gives the settled file the name `name` and what stands there its temporary name: what goes with the object is then
  /// that. Errors: kNotFound when nothing stands there; kSystem, EINVAL or ENOSYS where the file system cannot do that;
  /// nothing has changed then.
  [[nodiscard]] Status exchangeWith(const std::string& name);

  /// Puts what was kept, or exchanged for the file, back under `name`. Needs no memory and no descriptor. Returns
  /// whether it could; if not, it stays under its temporary name.
  bool putBack(const std::string& name) noexcept;

 private:
  TemporaryFile(int directory, std::string_view name);
  [[nodiscard]] Status makeNameless();
  [[nodiscard]] Status makeNamed();
  /// Tries random names until `take` returns 0 for one that is free. Returns what it returned last.
  template <typename Take>
  [[nodiscard]] Status takeName(Take take);

  int m_directory;
  std::string m_name;  ///< its last characters are chosen anew for each attempt
  bool m_bNamed = false;
  UniqueFd m_fd;
};

/// Whether a name is one that a TemporaryFile may have had.
[[nodiscard]] bool bTemporaryName(std::string_view name);

}  // namespace kelt::base
