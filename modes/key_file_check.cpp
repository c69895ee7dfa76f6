#include "modes/key_file_check.h"

#include <array>
#include <cstdint>
#include <utility>

#include "base/console.h"
#include "helper/agent_paths.h"
#include "helper/unix_command_line_helper.h"
#include "modes/messages.h"
#include "platform/afile.h"
#include "platform/logger.h"

namespace kelt::helper {
namespace {

namespace messages = modes::messages;

/// The keys that come in two forms, and the marker file that has only one.
enum KeyFileGroup { kRequest, kMarker, kServer, kGroupCount };

/// More than any key takes in any form.
constexpr std::uint64_t kMaxKeyFileSize = std::uint64_t{64} * 1024;

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

using modes::KeyFileFinding;
using modes::KeyFileState;

/// One check of a directory: what was found missing so far.
class KeyFileCheck {
 public:
  explicit KeyFileCheck(std::wstring directory) : m_directory(std::move(directory)) {}

  KeyFileFinding examine(const KeyFile& file) {
    const std::wstring path = m_directory + file.name;
    bool bExists = false;
    // A full form that cannot be examined does not count as missing: the legacy form is made beside it all the same.
    if (!AFiler::getFileAccessibility(path, AFiler::kRead, bExists)) return {path, KeyFileState::kInaccessible};
    if (bExists) return {path, stateOf(path)};
    bool& bFullFormMissing = m_fullFormMissing.at(file.group);
    if (file.bMadeIfMissing && !bFullFormMissing) return {path, KeyFileState::kToBeMade};
    bFullFormMissing = true;
    return {path, KeyFileState::kMissing};
  }

 private:
  /// Whether what is there can be a key file.
  static KeyFileState stateOf(const std::wstring& path) {
    std::uint64_t size = 0;
    if (!AFiler::tryGetFileSize(path, size)) return KeyFileState::kNotRegular;
    return size > kMaxKeyFileSize ? KeyFileState::kTooLarge : KeyFileState::kThere;
  }

  std::wstring m_directory;
  std::array<bool, kGroupCount> m_fullFormMissing{};
};

bool complain(const wchar_t* text, const std::wstring& path) {
  base::printLine(text + path);
  return false;
}

/// For what is there and cannot be a key file: the log says why not.
bool refuse(const std::wstring& path, const wchar_t* problem) {
  logError(L"keltcfg", (path + problem).c_str());
  return complain(messages::kKeyFileInaccessible, path);
}

/// Where this fails, copying the file fails later and says so.
bool makeEmpty(const std::wstring& path) {
  AFile file;
  if (file.openAlways(path)) file.close();
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
      return refuse(file.path, L": not a regular file");
    case KeyFileState::kTooLarge:
      return refuse(file.path, L": larger than any key file");
  }
  return false;
}

}  // namespace

bool unixCommandLineHelper::allKeyFilesPresent() {
  bool bComplete = true;
  for (const KeyFileFinding& file : modes::examineKeyFiles(GetSourceDir())) {
    if (!settle(file)) bComplete = false;
  }
  if (!bComplete) base::printLine(messages::keyFilesIncomplete(GetSourceDir()));
  return bComplete;
}

}  // namespace kelt::helper

namespace kelt::modes {

std::vector<KeyFileFinding> examineKeyFiles(const std::wstring& directory) {
  helper::KeyFileCheck check(directory);
  std::vector<KeyFileFinding> findings;
  findings.reserve(helper::kKeyFiles.size());
  for (const auto& file : helper::kKeyFiles)
    findings.push_back(check.examine(file));
  return findings;
}

}  // namespace kelt::modes
