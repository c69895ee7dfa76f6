// The managed switch: site list and key files from the source directory go into the installation.
//
// Every file is replaced as a whole and is on the disk before the next one is touched, so that a power cut leaves old
// files and new ones but no halves. The source files are deleted last; until then the switch can be run again, which
// completes an interrupted one.

#include <vector>

#include "base/console.h"
#include "base/retry.h"
#include "helper/agent_paths.h"
#include "helper/unix_command_line_helper.h"
#include "modes/clear_file.h"
#include "modes/messages.h"
#include "modes/site_list.h"
#include "platform/afile.h"
#include "platform/logger.h"

namespace kelt::helper {
namespace {

namespace messages = modes::messages;

using modes::SiteListContent;

/// What the site list at `path` holds. One that does not load is taken for Latin-1, converted where it stands, and
/// loaded again: one that the system merely refused for once would be spoilt by that.
SiteListContent examine(const unixCommandLineHelper& helper, const std::wstring& path) {
  AnXml siteList;
  const auto load = [&] { return siteList.useExistingFile(path.c_str(), modes::kSiteListRoot, nullptr, nullptr); };
  if (!base::bAskedTwice(load) && !(helper.ConvertSiteListToUTF8(path) && load())) return SiteListContent::kUnloadable;
  return modes::contentOf(siteList);
}

void logPath(const wchar_t* what, const std::wstring& path) {
  logInfo(L"keltcfg", (what + path).c_str());
}

/// A file that the switch handled.
struct Handled {
  std::wstring source;
  std::wstring destination;
  bool bCopied;             ///< what is at the destination is the source's content
  bool bOneFile;            ///< as it was before, source and destination being one file
  bool bSourceIsTakenBack;  ///< taking back deletes the source instead of the copy
};

/// One run of the switch: which files it has handled, and whether all went well so far. It has not until the site list
/// is copied.
class ManagedSwitch {
 public:
  explicit ManagedSwitch(std::wstring sourceDir) : m_sourceDir(std::move(sourceDir)) {}

  bool copySiteList() {
    // Taking back means the source: an installed site list that the agent may already have read stays.
    m_bResult = copy(paths::kSiteList, paths::kScratchEtcDir, true).bCopied;
    return m_bResult;
  }

  /// A site list that is not copied is deleted like one that is, where it was fetched.
  void passOverSiteList() { m_handled.push_back(examined(paths::kSiteList, paths::kScratchEtcDir, true)); }

  void copyKeyFile(const wchar_t* name) {
    const Handled& file = copy(name, paths::kInstallDir, false);
    if (file.bCopied) return;
    base::printLine(messages::kKeyFileNotCopied + file.source);
    m_bResult = false;
  }

  void clearCache(const modes::ClearedFile& file) {
    const modes::Cleared cleared = modes::clearFile(file);
    if (cleared == modes::Cleared::kFailed) m_bResult = false;
    if (cleared == modes::Cleared::kDeleted) logPath(L"Deleted as cached: ", file.path);
  }

  /// Deletes what was copied. A failure here is told, and changes nothing any more.
  void takeBack() const {
    for (const Handled& file : m_handled) {
      if (!file.bCopied || bKept(file)) continue;
      const std::wstring& path = file.bSourceIsTakenBack ? file.source : file.destination;
      static_cast<void>(bDeleted(path, L"Deleted after a failed switch: "));
    }
  }

  void deleteSources() {
    for (const Handled& file : m_handled) {
      if (bKept(file)) continue;
      if (!bDeleted(file.source, L"Deleted as fetched: ")) m_bResult = false;
    }
  }

  [[nodiscard]] bool result() const { return m_bResult; }

 private:
  [[nodiscard]] Handled examined(const wchar_t* name, const wchar_t* directory, bool bSourceIsTakenBack) const {
    const std::wstring source = m_sourceDir + name;
    const std::wstring destination = std::wstring(directory) + name;
    return {source, destination, false, bOneFile(source, destination), bSourceIsTakenBack};
  }

  /// Copies a file and notes what came of it.
  const Handled& copy(const wchar_t* name, const wchar_t* directory, bool bSourceIsTakenBack) {
    Handled& file = m_handled.emplace_back(examined(name, directory, bSourceIsTakenBack));
    file.bCopied = AFiler::copyFile(file.source, file.destination);
    return file;
  }

  /// Deletes a file, with a line on the console when that fails and one in the log when it does not.
  static bool bDeleted(const std::wstring& path, const wchar_t* logged) {
    if (!modes::deleteOrComplain(path, messages::kFileNotDeleted)) return false;
    logPath(logged, path);
    return true;
  }

  /// Whether the file is what is installed, and so neither a copy to take back nor a source to delete.
  static bool bKept(const Handled& file) {
    if (file.bOneFile) logPath(L"Kept, being what is installed: ", file.source);
    return file.bOneFile;
  }

  std::wstring m_sourceDir;
  bool m_bResult = false;
  std::vector<Handled> m_handled;
};

bool fail(const wchar_t* text) {
  base::printLine(text);
  return false;
}

}  // namespace

bool unixCommandLineHelper::bFetchedHere() const {
  const auto here = fileIdOf(GetSourceDir() + L"/");
  if (here && here == m_fetchedInto) return true;
  logPath(L"Kept, as nothing was fetched into this directory: ", GetSourceDir());
  return false;
}

bool unixCommandLineHelper::managedModeTask() {
  const SiteListContent content = examine(*this, GetSourceDir() + paths::kSiteList);
  if (content == SiteListContent::kUnloadable) return fail(messages::kSiteListNotLoaded);
  if (content == SiteListContent::kNoServer) return fail(messages::kServerAddressMissing);

  ManagedSwitch change(GetSourceDir());
  // A site list without sites is not copied. Without that copy the switch fails in the end, with the caches cleared.
  if (content != SiteListContent::kServer) {
    change.passOverSiteList();
  } else if (!change.copySiteList()) {
    return fail(messages::kSiteListNotCopied);
  }
  for (const wchar_t* name : {paths::kRequestKey, paths::kRequestKey2048, paths::kFipsMarker})
    change.copyKeyFile(name);
  change.clearCache(modes::serverSiteList());
  change.clearCache(modes::siteCache());
  for (const wchar_t* name : {paths::kServerKey, paths::kServerKey2048})
    change.copyKeyFile(name);

  if (!change.result()) change.takeBack();
  if (m_provisionFromServer && bFetchedHere()) change.deleteSources();
  return change.result();
}

}  // namespace kelt::helper
