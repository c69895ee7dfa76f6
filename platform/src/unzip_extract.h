#pragma once
// The second pass over an archive: writing what the first one passed, all of it or nothing.

#include <string>
#include <vector>

#include "unzip_guard.h"

#include "base/result.h"
#include "base/unique_fd.h"

namespace kelt::platform {

/// Files and directories on their way into a directory. Files are complete under temporary names first; commit renames
/// them. Whatever was not committed is taken away again by the destructor.
class StagedTree {
 public:
  explicit StagedTree(base::UniqueFd root) : m_root(std::move(root)) {}
  StagedTree(const StagedTree&) = delete;
  StagedTree& operator=(const StagedTree&) = delete;
  ~StagedTree();

  /// Makes one entry: a directory (0700, kept if it is there) or a file (0600) under a temporary name, and the
  /// directories above it. No symbolic link on the way is followed. Errors: kSystem; kRefused when something stands in
  /// the way.
  [[nodiscard]] base::Status add(const ZipArchive& archive, const JudgedEntry& judged);

  /// Gives all files their names, replacing files and links of those names, and makes that durable. Errors: kSystem;
  /// the destructor then takes away what was renamed, too.
  [[nodiscard]] base::Status commit();

 private:
  using Parts = std::vector<std::string>;
  struct StagedFile {
    Parts parts;
    std::string temporary;
    bool renamed = false;
  };

  [[nodiscard]] base::Result<base::UniqueFd> openParent(const Parts& parts) const;
  [[nodiscard]] base::Status makeDirectories(const Parts& parts, std::size_t count);
  [[nodiscard]] base::Status addFile(const ZipArchive& archive, const JudgedEntry& judged);
  [[nodiscard]] base::Status rename(StagedFile& file) const;
  void takeBack();

  base::UniqueFd m_root;
  std::vector<StagedFile> m_files;
  std::vector<Parts> m_madeDirectories;  // in the order in which they were made
  bool m_committed = false;
};

}  // namespace kelt::platform
