#pragma once
// What a source directory holds of the key files that the managed switch copies.

#include <string>
#include <vector>

namespace kelt::modes {

/// How one of them stands.
enum class KeyFileState {
  kThere,
  kMissing,
  kToBeMade,      ///< the legacy form, missing beside its full form: the switch makes it, empty
  kInaccessible,  ///< cannot be examined
  kNotRegular,
  kTooLarge,
};

struct KeyFileFinding {
  std::string path;
  KeyFileState state;
};

/// Examines the key files in `directory`, in the order in which they are told of. Nothing is opened: a pipe would
/// block.
[[nodiscard]] std::vector<KeyFileFinding> examineKeyFiles(const std::string& directory);

}  // namespace kelt::modes
