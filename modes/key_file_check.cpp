// Whether a source directory holds every key file that the managed switch copies.

#include <array>
#include <cstdint>

#include "base/console.h"
#include "helper/agent_paths.h"
#include "helper/unix_command_line_helper.h"
#include "modes/messages.h"
#include "platform/afile.h"
#include "platform/crypto.h"
#include "platform/logger.h"

namespace kelt::helper {
namespace {

namespace messages = modes::messages;

/// The keys that come in two forms, and the marker file that has only one.
enum KeyFileGroup { kRequest, kMarker, kServer, kGroupCount };

struct KeyFile {
  const wchar_t* name;
  KeyFileGroup group;
  bool bMadeIfMissing;  ///< the legacy form: made empty where the full form, checked before, was not missing
};

constexpr std::array kKeyFiles{
    KeyFile{paths::kRequestKey2048, kRequest, false}, KeyFile{paths::kRequestKey, kRequest, true},
    KeyFile{paths::kFipsMarker, kMarker, false},      KeyFile{paths::kServerKey2048, kServer, false},
    KeyFile{paths::kServerKey, kServer, true},
};

/// One check of a directory: what was found missing so far.
class KeyFileCheck {
 public:
  explicit KeyFileCheck(std::wstring directory) : m_directory(std::move(directory)) {}

  /// Prints what is wrong with the file, or makes it where that helps. Returns false when something was wrong.
  bool check(const KeyFile& file) {
    const std::wstring path = m_directory + file.name;
    bool bExists = false;
    // A full form that cannot be examined does not count as missing: the legacy form is made beside it all the same.
    if (!AFiler::getFileAccessibility(path, AFiler::kRead, bExists))
      return complain(messages::kKeyFileInaccessible, path);
    if (bExists) return bKeyFile(path) || complain(messages::kKeyFileInaccessible, path);
    bool& bFullFormMissing = m_fullFormMissing.at(file.group);
    if (file.bMadeIfMissing && !bFullFormMissing) {
      makeEmpty(path);
      return true;
    }
    bFullFormMissing = true;
    return complain(messages::kKeyFileMissing, path);
  }

 private:
  /// Whether what is there can be a key file; else the log says why not. Nothing is opened: a pipe would block.
  static bool bKeyFile(const std::wstring& path) {
    std::uint64_t size = 0;
    const wchar_t* problem = nullptr;
    if (!AFiler::tryGetFileSize(path, size)) {
      problem = L": not a regular file";
    } else if (size > platform::kMaxKeyFileSize) {
      problem = L": larger than any key file";
    }
    if (problem != nullptr) logError(L"keltcfg", (path + problem).c_str());
    return problem == nullptr;
  }

  static bool complain(const wchar_t* text, const std::wstring& path) {
    base::printLine(text + path);
    return false;
  }

  /// Where this fails, copying the file fails later and says so.
  static void makeEmpty(const std::wstring& path) {
    AFile file;
    if (file.openAlways(path)) file.close();
  }

  std::wstring m_directory;
  std::array<bool, kGroupCount> m_fullFormMissing{};
};

}  // namespace

bool unixCommandLineHelper::allKeyFilesPresent() {
  KeyFileCheck directory(GetSourceDir());
  bool bComplete = true;
  for (const KeyFile& file : kKeyFiles) {
    if (!directory.check(file)) bComplete = false;
  }
  if (!bComplete) base::printLine(messages::keyFilesIncomplete(GetSourceDir()));
  return bComplete;
}

}  // namespace kelt::helper
