// The managed switch: site list and key files from the source directory go into the installation.
//
// Every file is replaced as a whole and is on the disk before the next one is touched, so that a power cut leaves old
// files and new ones but no halves. The source files are deleted last; until then the switch can be run again, which
// completes an interrupted one.

#include <string>
#include <string_view>
#include <vector>

#include "base/console.h"
#include "base/file_place.h"
#include "base/retry.h"
#include "base/utf.h"
#include "helper/agent_log.h"
#include "helper/agent_paths.h"
#include "helper/file_id.h"
#include "helper/files.h"
#include "helper/unix_command_line_helper.h"
#include "modes/clear_file.h"
#include "modes/messages.h"
#include "modes/site_list.h"
#include "modes/take_back.h"

namespace kelt::modes {
namespace {

namespace paths = helper::paths;

/// What the site list at `path` holds. One that does not load is taken for Latin-1, converted where it stands, and
/// loaded again: one that the system merely refused for once would be spoilt by that.
SiteListContent examine(const helper::unixCommandLineHelper& helper, const std::string& path) {
  SiteList siteList;
  const auto load = [&] { return siteList.load(path); };
  const bool bLoaded = base::askTwice(load) || (helper.ConvertSiteListToUTF8(base::toWide(path)) && load());
  return bLoaded ? siteList.content() : SiteListContent::kUnloadable;
}

void logKept(const char* why, const std::string& path) {
  helper::logEvent(std::string("Kept, ") + why + ": " + path);
}

/// A file that the switch handled.
struct Handled {
  std::string source;
  std::string destination;
  bool bCopied;          ///< what is at the destination is the source's content
  bool bOneFile;         ///< as it was before, source and destination being one file
  bool bUndoneAtSource;  ///< undoing deletes the source instead of the copy
};

/// One run of the switch: which files it has handled, and whether all went well so far. It has not until the site list
/// is copied.
class ManagedSwitch {
 public:
  explicit ManagedSwitch(std::string sourceDir) : m_sourceDir(std::move(sourceDir)) {}

  bool copySiteList() {
    // Undoing means the source: an installed site list that the agent may already have read stays.
    m_bResult = copy(paths::kSiteList, paths::kScratchEtcDir, true).bCopied;
    return m_bResult;
  }

  /// A site list that is not copied is deleted like one that is, where it was fetched.
  void passOverSiteList() { m_handled.push_back(examined(paths::kSiteList, paths::kScratchEtcDir, true)); }

  void copyKeyFile(const char* name) {
    const Handled& file = copy(name, paths::kInstallDir, false);
    if (file.bCopied) return;
    base::printLine(messages::kKeyFileNotCopied + file.source);
    m_bResult = false;
  }

  void clearCache(const FileToClear& file) {
    const Cleared cleared = clearFile(file);
    if (cleared == Cleared::kFailed) m_bResult = false;
    if (cleared == Cleared::kDeleted) helper::logEvent("Deleted as cached: " + file.path);
  }

  /// Deletes what was copied. A failure here is told, and changes nothing any more. A mark has the next run go on with
  /// it: that finds no site list to begin with any more. Where an import is marked already, that mark stays.
  void undo() const {
    helper::WorkMark mark;
    const std::vector<std::string> names = copiedKeyFiles();
    if (!names.empty() && !mark.found()) mark.begin({helper::Work::kTakeBack, planOfTakingBack(names)});
    for (const Handled& file : m_handled) {
      if (!file.bCopied) continue;
      const std::string& path = file.bUndoneAtSource ? file.source : file.destination;
      static_cast<void>(remove(file, path, "Deleted after a failed switch: "));
    }
    if (!names.empty()) static_cast<void>(base::syncDirectory(paths::kInstallDir));
  }

  void deleteSources() {
    for (const Handled& file : m_handled) {
      if (!remove(file, file.source, "Deleted as fetched: ")) m_bResult = false;
    }
  }

  [[nodiscard]] bool result() const { return m_bResult; }

 private:
  [[nodiscard]] Handled examined(const char* name, const char* directory, bool bUndoneAtSource) const {
    const std::string source = m_sourceDir + name;
    const std::string destination = std::string(directory) + name;
    return {source, destination, false, helper::bOneFile(source, destination), bUndoneAtSource};
  }

  /// Copies a file and notes what came of it.
  const Handled& copy(const char* name, const char* directory, bool bUndoneAtSource) {
    Handled& file = m_handled.emplace_back(examined(name, directory, bUndoneAtSource));
    file.bCopied = helper::copyFile(file.source, file.destination);
    return file;
  }

  /// The names of the key files that are to be taken back.
  [[nodiscard]] std::vector<std::string> copiedKeyFiles() const {
    std::vector<std::string> names;
    for (const Handled& file : m_handled) {
      if (file.bCopied && !file.bOneFile && !file.bUndoneAtSource)
        names.push_back(file.destination.substr(std::string_view(paths::kInstallDir).size()));
    }
    return names;
  }

  /// Deletes `path`, the source or the copy of a file, with a line on the console when that fails and one in the log
  /// when it does not. What is installed itself is neither a copy to undo nor a source to delete, and is kept. Returns
  /// whether nothing failed.
  static bool remove(const Handled& file, const std::string& path, const char* logged) {
    if (file.bOneFile) {
      logKept("being what is installed", file.source);
      return true;
    }
    if (!deleteOrComplain(path, messages::kFileNotDeleted)) return false;
    helper::logEvent(logged + path);
    return true;
  }

  std::string m_sourceDir;
  bool m_bResult = false;
  std::vector<Handled> m_handled;
};

/// Copies the files in their order, and clears what the agent knows of an earlier server on the way.
void install(ManagedSwitch& change) {
  for (const char* name : {paths::kRequestKey, paths::kRequestKey2048, paths::kFipsMarker})
    change.copyKeyFile(name);
  change.clearCache(serverSiteList());
  change.clearCache(siteCache());
  for (const char* name : {paths::kServerKey, paths::kServerKey2048})
    change.copyKeyFile(name);
}

bool fail(const char* text) {
  base::printLine(text);
  return false;
}

}  // namespace
}  // namespace kelt::modes

namespace kelt::helper {

bool unixCommandLineHelper::bFetchedHere() const {
  const auto here = fileIdOf(base::toUtf8(GetSourceDir()) + "/");
  return here && here == m_fetchedInto;
}

bool unixCommandLineHelper::managedModeTask() {
  const std::string source = base::toUtf8(GetSourceDir());
  const auto content = modes::examine(*this, source + paths::kSiteList);
  if (content == modes::SiteListContent::kUnloadable) return modes::fail(modes::messages::kSiteListNotLoaded);
  if (content == modes::SiteListContent::kNoServer) return modes::fail(modes::messages::kServerAddressMissing);

  modes::ManagedSwitch change(source);
  // A site list without sites is not copied. Without that copy the switch fails in the end, with the caches cleared.
  if (content != modes::SiteListContent::kServer) {
    change.passOverSiteList();
  } else if (!change.copySiteList()) {
    return modes::fail(modes::messages::kSiteListNotCopied);
  }
  modes::install(change);

  if (!change.result()) change.undo();
  if (m_provisionFromServer && bFetchedHere()) {
    change.deleteSources();
  } else if (m_provisionFromServer) {
    modes::logKept("as nothing was fetched into this directory", source);
  }
  return change.result();
}

}  // namespace kelt::helper
