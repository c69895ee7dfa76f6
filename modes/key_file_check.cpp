#include "modes/key_file_check.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "base/console.h"
#include "base/utf.h"
#include "helper/agent_log.h"
#include "helper/agent_paths.h"
#include "helper/files.h"
#include "helper/unix_command_line_helper.h"
#include "modes/messages.h"
#include "platform/afile.h"
#include "platform/crypto.h"

namespace kelt::modes {
namespace {

namespace paths = helper::paths;
using helper::Presence;

struct KeyFile {
  const char* name;
  const char* fullForm;  ///< of a key whose legacy form this is; null for a file that must be there
};

/// In the order in which they are checked: a full form before its legacy form.
constexpr std::array kKeyFiles{
    KeyFile{paths::kRequestKey2048, nullptr},
    KeyFile{paths::kRequestKey, paths::kRequestKey2048},
    KeyFile{paths::kFipsMarker, nullptr},
    KeyFile{paths::kServerKey2048, nullptr},
    KeyFile{paths::kServerKey, paths::kServerKey2048},
};

/// One examination of a directory: what was found missing so far.
class KeyFileCheck {
 public:
  explicit KeyFileCheck(const std::string& directory) : m_directory(directory) {}

  KeyFileFinding examine(const KeyFile& file) {
    const std::string path = m_directory + file.name;
    switch (helper::presenceForReading(path)) {
      case Presence::kThere:
        return {path, stateOf(path)};
      case Presence::kUnknown:
        return {path, KeyFileState::kInaccessible};
      case Presence::kAbsent:
        break;
    }
    // Also beside a full form that cannot be examined: that one is not known to be missing.
    if (file.fullForm != nullptr && !bMissing(file.fullForm)) return {path, KeyFileState::kToBeMade};
    m_missing.emplace_back(file.name);
    return {path, KeyFileState::kMissing};
  }

 private:
  /// Whether what is there can be a key file.
  static KeyFileState stateOf(const std::string& path) {
    const auto size = helper::sizeOf(path);
    // Only a regular file has one. A directory of that name could not be copied, nor imported from.
    if (!size) return KeyFileState::kNotRegular;
    return *size > platform::kMaxKeyFileSize ? KeyFileState::kTooLarge : KeyFileState::kThere;
  }

  [[nodiscard]] bool bMissing(std::string_view name) const {
    return std::find(m_missing.begin(), m_missing.end(), name) != m_missing.end();
  }

  const std::string& m_directory;
  std::vector<std::string_view> m_missing;  // names of files
};

bool complain(const char* text, const std::string& path) {
  base::printLine(text + path);
  return false;
}

/// For what is there and cannot be a key file: the log says why not.
bool refuse(const std::string& path, const char* problem) {
  helper::logProblem(path + problem);
  return complain(messages::kKeyFileInaccessible, path);
}

/// The switch copies all five files. An empty one serves for that, and counts as absent for the import. Where it cannot
/// be made, copying it fails later and says so.
bool makeEmpty(const std::string& path) {
  AFile file;
  if (file.openAlways(base::toWide(path))) file.close();
  return true;
}

/// Prints what is wrong with a file, or makes it where that helps. Returns false when something was wrong.
bool settle(const KeyFileFinding& file) {
  switch (file.state) {
    case KeyFileState::kThere:
      return true;
    case KeyFileState::kToBeMade:
      return makeEmpty(file.path);
    case KeyFileState::kMissing:
      return complain(messages::kKeyFileMissing, file.path);
    case KeyFileState::kInaccessible:
      return complain(messages::kKeyFileInaccessible, file.path);
    case KeyFileState::kNotRegular:
      return refuse(file.path, ": not a regular file");
    case KeyFileState::kTooLarge:
      return refuse(file.path, ": larger than any key file");
  }
  return false;
}

/// Settles every file, also after a problem, so that the user hears of all of them at once.
bool checkKeyFiles(const std::string& directory) {
  bool bComplete = true;
  for (const KeyFileFinding& file : examineKeyFiles(directory)) {
    if (!settle(file)) bComplete = false;
  }
  if (!bComplete) base::printLine(messages::keyFilesIncomplete(directory));
  return bComplete;
}

}  // namespace

std::vector<KeyFileFinding> examineKeyFiles(const std::string& directory) {
  KeyFileCheck check(directory);
  std::vector<KeyFileFinding> findings;
  findings.reserve(kKeyFiles.size());
  for (const KeyFile& file : kKeyFiles)
    findings.push_back(check.examine(file));
  return findings;
}

}  // namespace kelt::modes

namespace kelt::helper {

bool unixCommandLineHelper::allKeyFilesPresent() {
  return modes::checkKeyFiles(base::toUtf8(GetSourceDir()));
}

}  // namespace kelt::helper
