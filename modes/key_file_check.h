#pragma once
// What a source directory holds of the key files that the managed switch copies.

#include <string>
#include <vector>

namespace kelt::modes {

/// How one of them stands.
enum class KeyFileState {
  kThere,     ///< a regular file, or a link to one, of a size that a key file can have; its content is not looked at
  kMissing,   ///< a file that has to be there, or the legacy form of a key whose full form is missing, too
  kToBeMade,  ///< the legacy form, missing beside its full form: the switch makes it, empty
  kInaccessible,  ///< cannot be examined
  kNotRegular,    ///< a directory or a pipe, say: it could not be copied, nor imported from
  kTooLarge,      ///< beyond platform::kMaxKeyFileSize, up to which an import reads
};

struct KeyFileFinding {
  std::string path;
  KeyFileState state;
};

/// Examines the key files in `directory`, in the order in which they are told of. Nothing is opened: a pipe would
/// block.
[[nodiscard]] std::vector<KeyFileFinding> examineKeyFiles(const std::string& directory);

}  // namespace kelt::modes
