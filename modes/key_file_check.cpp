// Whether a source directory holds every key file that the managed switch copies.

#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>
#include <utility>
#include <vector>

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

bool complain(const char* text, const std::string& path) {
  base::printLine(text + path);
  return false;
}

/// Why what stands at `path` is no key file; null where it is one. Nothing is opened: a pipe would block.
const char* whyNoKeyFile(const std::string& path) {
  const auto size = helper::sizeOf(path);
  if (!size) return ": not a regular file";
  return *size > platform::kMaxKeyFileSize ? ": larger than any key file" : nullptr;
}

/// Looks at what is there. Returns false, with a line on the console and the reason in the log, where it is no key
/// file.
bool checkContent(const std::string& path) {
  const char* const problem = whyNoKeyFile(path);
  if (problem == nullptr) return true;
  helper::logProblem(path + problem);
  return complain(messages::kKeyFileInaccessible, path);
}

/// Where this fails, copying the file fails later and says so.
void makeEmpty(const std::string& path) {
  AFile file;
  if (file.openAlways(base::toWide(path))) file.close();
}

/// One check of a directory, file by file.
class KeyFileCheck {
 public:
  explicit KeyFileCheck(std::string directory) : m_directory(std::move(directory)) {}

  /// Prints what is wrong with the file, or makes it where that helps. Returns false when something was wrong.
  bool check(const KeyFile& file) {
    const std::string path = m_directory + file.name;
    switch (helper::presenceForReading(path)) {
      case Presence::kThere:
        return checkContent(path);
      case Presence::kUnknown:
        return complain(messages::kKeyFileInaccessible, path);
      case Presence::kAbsent:
        break;
    }
    // Also beside a full form that cannot be examined: that one is not known to be missing.
    if (file.fullForm != nullptr && !bMissing(file.fullForm)) {
      makeEmpty(path);
      return true;
    }
    m_missing.emplace_back(file.name);
    return complain(messages::kKeyFileMissing, path);
  }

 private:
  [[nodiscard]] bool bMissing(std::string_view name) const {
    return std::find(m_missing.begin(), m_missing.end(), name) != m_missing.end();
  }

  std::string m_directory;
  std::vector<std::string_view> m_missing;  // names of files
};

/// Checks every file, also after a problem, so that the user hears of all of them at once.
bool checkKeyFiles(const std::string& directory) {
  KeyFileCheck files(directory);
  bool bComplete = true;
  for (const KeyFile& file : kKeyFiles) {
    if (!files.check(file)) bComplete = false;
  }
  if (!bComplete) base::printLine(messages::keyFilesIncomplete(directory));
  return bComplete;
}

}  // namespace
}  // namespace kelt::modes

namespace kelt::helper {

bool unixCommandLineHelper::allKeyFilesPresent() {
  return modes::checkKeyFiles(base::toUtf8(GetSourceDir()));
}

}  // namespace kelt::helper
