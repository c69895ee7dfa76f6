#pragma once
// Opening files that decide what root does, and judging them by what was opened.

#include <string>
#include <sys/stat.h>

#include "base/result.h"
#include "base/unique_fd.h"

namespace kelt::base {

/// Who may own a file that is trusted, and who may write to it.
struct Trust {
  uid_t owner = 0;              ///< besides root
  bool bJudgesGroup = false;    ///< whether a group that may write to it counts as others, unless it is the owner's own
  bool bJudgesAnything = true;  ///< false: every file will do
};

/// Why a file or directory is not trusted, as the end of a sentence that begins with its path; null where it is.
/// A group is the owner's own where both have the same number: root's is, and so is a user's on systems that make one
/// group per user.
[[nodiscard]] const char* whyNotTrusted(const struct stat& info, const Trust& trust);

/// A regular file that was opened for reading, and the directory that it was opened in.
struct OpenedFile {
  UniqueFd file;
  UniqueFd directory;  ///< for looking things up in it; links that led to the file are resolved
  std::string name;    ///< of the file in `directory`
  std::string path;    ///< what messages call the file
};

/// Opens the file at `path` for reading, close-on-exec and without waiting. `path` is absolute, or begins in the open
/// directory `from`, which messages call `fromPath`. Where the file is a symbolic link, that is followed step by step:
/// the directory of each link, the directory that the file stands in, and the file are judged by `trust`, each by its
/// own descriptor, so that nobody who is not trusted can exchange one of them in between. Directories above these are
/// not judged. Errors: kNotFound, whoever may write to the directory; kRefused for what is not trusted, not a regular
/// file, or behind too many links; kSystem.
[[nodiscard]] Result<OpenedFile> openTrusted(int from, const std::string& fromPath, const std::string& path,
                                             const Trust& trust);

}  // namespace kelt::base
