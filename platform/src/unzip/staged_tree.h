#pragma once
// The second pass over an archive: writing what the first one passed, all of it or nothing.

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "unzip/guard.h"

#include "base/result.h"
#include "base/signals.h"
#include "base/temporary_file.h"
#include "base/unique_fd.h"

namespace kelt::platform {

/// Files and directories on their way into a directory. Files are complete under temporary names first; commit gives
/// them theirs. Whatever was not committed is taken away again by the destructor, which puts back what it replaced.
/// SIGINT, SIGTERM and SIGHUP wait as long as the object lives. A run that is killed leaves each name with its old file
/// or its new one, and temporary files that base/sweep.h removes.
///
/// Each directory stays open, as taking back must not need a descriptor: an archive with more directories than the
/// process may have descriptors is refused.
class StagedTree {
 public:
  /// Stages below the open directory `root`, which is synced in the end and so was opened for reading.
  explicit StagedTree(base::UniqueFd root) : m_root(std::move(root)) {}
  StagedTree(const StagedTree&) = delete;
  StagedTree& operator=(const StagedTree&) = delete;
  ~StagedTree();

  /// Makes one entry: a directory (0700, kept if it is there) or a file (0600) under a temporary name, and the
  /// directories above it. No symbolic link on the way is followed. What an earlier run left in a directory that is
  /// there is swept. Errors: kSystem; kRefused when something stands in the way.
  [[nodiscard]] Status add(const ZipArchive& archive, const JudgedEntry& judged);

  /// Gives all files their names, in place of files and links of those names, and makes that and the new directories
  /// durable. Errors: kSystem; kRefused when a directory has such a name; the destructor then takes back what was done.
  [[nodiscard]] Status commit();

 private:
  using Parts = std::vector<std::string>;
  /// How far a file has come: under its temporary name, or under its own, where nothing stood or something did.
  enum class Stage { kStaged, kNew, kReplaced };
  /// A file of the archive, complete and on the disk.
  struct StagedFile {
    int directory;
    std::string name;
    std::optional<base::TemporaryFile> temporary;  // the file itself, and once it has its name what stood there before
    Stage stage = Stage::kStaged;
  };
  /// A directory that this unpacking made, and takes away again unless it is committed.
  struct MadeDirectory {
    int parent;
    std::string name;
  };

  /// The directory of the first `count` parts, made if need be.
  [[nodiscard]] Result<int> directoryFor(const Parts& parts, std::size_t count);
  /// Opens a directory in the open one `parent`, or makes it. One that was there is swept.
  [[nodiscard]] Result<base::UniqueFd> openOrMake(int parent, const std::string& name);
  [[nodiscard]] Status addFile(const ZipArchive& archive, const JudgedEntry& judged);
  /// Gives a staged file its name, and keeps what stood there under the temporary one. Errors as commit.
  [[nodiscard]] static Status takeName(StagedFile& file);
  [[nodiscard]] static Status keepAndReplace(StagedFile& file);
  /// Brings the names in all directories of the tree to the disk. Errors: kSystem.
  [[nodiscard]] Status syncAll() const;
  /// Takes back what was done, the last step first. Takes neither memory nor a descriptor.
  void undo() noexcept;

  base::DeferredSignals m_signals;
  base::UniqueFd m_root;
  std::map<std::string, base::UniqueFd> m_directories;  // by path below the root
  std::vector<StagedFile> m_files;
  std::vector<MadeDirectory> m_made;  // in the order in which they were made
  bool m_bCommitted = false;
};

}  // namespace kelt::platform
