// The unmanaged switch: the installed site list loses its servers, and what belongs to the server goes.
//
// The site list comes first, replaced as a whole. A power cut before that leaves an agent that is managed as it was and
// can be switched again; one after it leaves an agent without servers, and possibly legacy keys and caches of the
// server. A mark tells the next run to delete those, which it would not do for a site list without servers.

#include "modes/unmanaged_mode.h"

#include <array>
#include <string>

#include "base/console.h"
#include "base/file_place.h"
#include "helper/agent_log.h"
#include "helper/agent_paths.h"
#include "helper/files.h"
#include "helper/unix_command_line_helper.h"
#include "modes/clear_file.h"
#include "modes/messages.h"
#include "modes/site_list.h"

namespace kelt::modes {
namespace {

namespace paths = helper::paths;
using helper::Presence;

FileToClear legacyKey(const char* name) {
  return {std::string(paths::kInstallDir) + name, messages::kKeyFileInaccessible, messages::kKeyFileNotDeleted};
}

/// What belongs to the server, in the order in which it is deleted.
std::array<FileToClear, 4> serverData() {
  return {legacyKey(paths::kRequestKey), legacyKey(paths::kServerKey), serverSiteList(), siteCache()};
}

/// Deletes what belongs to the server, as `clear` does it, and brings that to the disk. Returns whether all is gone.
template <typename Clear>
bool clearServerData(const Clear& clear) {
  bool bResult = true;
  for (const FileToClear& file : serverData()) {
    if (!clear(file)) bResult = false;
  }
  for (const char* directory : {paths::kInstallDir, paths::kScratchDir, paths::kScratchEtcDir})
    static_cast<void>(base::syncDirectory(std::string(directory)));
  return bResult;
}

/// Two ways to do it for a file: what does not work is said on the console, or in the log alone.
bool clearAloud(const FileToClear& file) {
  return clearFile(file) != Cleared::kFailed;
}

bool clearSilently(const FileToClear& file) {
  const Presence presence = helper::presenceForReading(file.path);
  if (presence == Presence::kAbsent) return true;
  if (presence == Presence::kThere && helper::deleteFile(file.path)) return true;
  helper::logProblem("Left of an interrupted switch, not deleted: " + file.path);
  return false;
}

std::string installedSiteList() {
  return std::string(paths::kScratchEtcDir) + paths::kSiteList;
}

bool fail(const std::string& text) {
  base::printLine(text);
  return false;
}

/// Loads the installed site list. Returns false, having said why, when that is not possible.
bool loadInstalled(SiteList& siteList) {
  const std::string path = installedSiteList();
  switch (helper::presenceForReading(path)) {
    case Presence::kUnknown:
      return fail(messages::kSiteListInaccessible + path);
    case Presence::kAbsent:
      return fail(messages::kInstalledSiteListMissing);
    case Presence::kThere:
      break;
  }
  return siteList.load(path) || fail(messages::kInstalledSiteListNotLoaded);
}

}  // namespace

void finishUnmanagedSwitch(helper::WorkMark& mark) {
  SiteList siteList;
  if (siteList.load(installedSiteList()) && !siteList.bHasServer()) {
    helper::logEvent("Finishing the switch to unmanaged mode that an earlier run began.");
    static_cast<void>(clearServerData(clearSilently));
  }
  mark.end();
}

}  // namespace kelt::modes

namespace kelt::helper {

bool unixCommandLineHelper::PrepareORVForUnmanagedMode() {
  WorkMark mark;
  const bool bBegun = mark.adopt(Work::kUnmanagedSwitch);
  modes::SiteList siteList;
  if (!modes::loadInstalled(siteList)) return false;
  // Without a server in it the agent is unmanaged already, but for what an earlier run left to be deleted.
  if (!siteList.removeServers()) return !bBegun || modes::clearServerData(modes::clearAloud);
  mark.begin({Work::kUnmanagedSwitch, {}});
  // A site list that cannot be written back keeps its servers, and the rest goes all the same.
  static_cast<void>(siteList.write(modes::installedSiteList()));
  return modes::clearServerData(modes::clearAloud);
}

}  // namespace kelt::helper
