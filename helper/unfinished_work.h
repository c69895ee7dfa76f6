#pragma once
// The mark of work that has to be brought to its end.
//
// A switch or an import is more than one file, and some of its steps take away what the same work would go by if it
// were done again: a site list without servers needs no switch, and keys that were imported are deleted. So such work
// is marked before its first effect, in the agent's data directory, and the mark is removed once all is done and on the
// disk. A run that finds one goes on where the run that made it was cut off.

#include <optional>
#include <string>
#include <sys/types.h>

#include "base/file_place.h"
#include "base/result.h"

namespace kelt::helper {

/// The kinds of such work.
enum class Work { kUnmanagedSwitch, kKeyImport, kTakeBack };

/// What a mark says.
struct BegunWork {
  Work work{};
  std::string plan;  ///< what whoever finishes it has to know: lines of its own, each with its line end
};

/// What the mark in the agent's data directory `data` says, for whoever only wants to know: nothing is removed, synced
/// or logged. It counts as that of the user `owner`. Errors: kNotFound; kRefused, for one that is none; kSystem.
[[nodiscard]] Result<BegunWork> inspectMark(const std::string& data, uid_t owner);

/// The mark, for whoever holds the instance lock.
class WorkMark {
 public:
  /// Looks whether an earlier run left one. One that is not a regular file of the effective user, closed to others'
  /// writing, of one name and small, or that does not read, is ignored and removed, with a line in the agent's log; no
  /// link is followed. One that counts is on the disk from here on.
  WorkMark();
  WorkMark(const WorkMark&) = delete;
  WorkMark& operator=(const WorkMark&) = delete;
  /// Removes a mark that this object has begun or adopted.
  ~WorkMark();

  /// What an earlier run left unfinished.
  [[nodiscard]] const std::optional<BegunWork>& found() const { return m_found; }

  /// Whether an earlier run left work of this kind unfinished. The mark is then this object's.
  [[nodiscard]] bool adopt(Work work) noexcept;

  /// Marks `work` as begun, in place of any mark that is there. On the disk when it returns. Where that is not
  /// possible even when it is tried again, on a full disk for instance, the log says so, and the work goes on without.
  void begin(const BegunWork& work);

  /// Removes the mark, whoever has made it. To be called, as the object's end, once all that the work has changed is on
  /// the disk.
  void end() noexcept;

 private:
  [[nodiscard]] Status find();
  [[nodiscard]] Status open();
  [[nodiscard]] Status read();
  [[nodiscard]] Status write(const std::string& text);
  void refuse(const std::string& why) const;

  std::string m_path;
  base::Place m_place;  ///< without a descriptor where there is no data directory
  std::optional<BegunWork> m_found;
  bool m_bOwn = false;
};

}  // namespace kelt::helper
