// The unmanaged switch: the installed site list loses its servers, and what belongs to the server goes.
//
// The site list comes first, replaced as a whole. A power cut before that leaves an agent that is managed as it was and
// can be switched again; one after it leaves an agent without servers, and possibly legacy keys and caches of the
// server. A mark tells the next run to delete those, which it would not do for a site list without servers.

#include "modes/unmanaged_mode.h"

#include <array>

#include "base/console.h"
#include "base/file_place.h"
#include "base/utf.h"
#include "helper/agent_paths.h"
#include "helper/unix_command_line_helper.h"
#include "modes/clear_file.h"
#include "modes/messages.h"
#include "platform/afile.h"
#include "platform/anxml.h"
#include "platform/logger.h"

namespace kelt::modes {
namespace {

namespace paths = helper::paths;

ClearedFile legacyKey(const wchar_t* name) {
  return {std::wstring(paths::kInstallDir) + name, messages::kKeyFileInaccessible, messages::kKeyFileNotDeleted};
}

/// What belongs to the server, in the order in which it is deleted.
std::array<ClearedFile, 4> serverData() {
  return {legacyKey(paths::kRequestKey), legacyKey(paths::kServerKey), serverSiteList(), siteCache()};
}

/// Deletes what belongs to the server, as `clear` does it, and brings that to the disk. Returns whether all is gone.
template <typename Clear>
bool clearServerData(const Clear& clear) {
  bool bResult = true;
  for (const ClearedFile& file : serverData()) {
    if (!clear(file)) bResult = false;
  }
  for (const wchar_t* directory : {paths::kInstallDir, paths::kScratchDir, paths::kScratchEtcDir})
    static_cast<void>(base::syncDirectory(base::toUtf8(directory)));
  return bResult;
}

bool bClearedSilently(const ClearedFile& file) {
  bool bExists = false;
  if (AFiler::getFileAccessibility(file.path, AFiler::kRead, bExists) && (!bExists || AFiler::deleteFile(file.path)))
    return true;
  logError(L"keltcfg", (L"Left of an interrupted switch, not deleted: " + file.path).c_str());
  return false;
}

bool bHasServers(AnXml& siteList) {
  const AnXmlNode root(&siteList);
  AnXmlNode sites;
  AnXmlNode server;
  return root.getExistingChild(&sites, L"SiteList", nullptr, nullptr, nullptr, nullptr) &&
         sites.getExistingChild(&server, L"SpipeSite", nullptr, nullptr, nullptr, nullptr);
}

std::wstring installedSiteList() {
  return std::wstring(paths::kScratchEtcDir) + paths::kSiteList;
}

}  // namespace

void finishUnmanagedSwitch(helper::WorkMark& mark) {
  AnXml siteList;
  const bool bLoads = siteList.useExistingFile(installedSiteList().c_str(), L"ns:SiteLists", nullptr, nullptr);
  if (bLoads && !bHasServers(siteList)) {
    logInfo(L"keltcfg", L"Finishing the switch to unmanaged mode that an earlier run began.");
    static_cast<void>(clearServerData(bClearedSilently));
  }
  mark.end();
}

}  // namespace kelt::modes

namespace kelt::helper {
namespace {

namespace messages = modes::messages;

bool fail(const std::wstring& text) {
  base::printLine(text);
  return false;
}

/// Opens the installed site list. Returns false, having said why, when that is not possible.
bool loadInstalledSiteList(const std::wstring& path, AnXml& siteList) {
  bool bExists = false;
  if (!AFiler::getFileAccessibility(path, AFiler::kRead, bExists)) return fail(messages::kSiteListInaccessible + path);
  if (!bExists) return fail(messages::kInstalledSiteListMissing);
  if (siteList.useExistingFile(path.c_str(), L"ns:SiteLists", nullptr, nullptr)) return true;
  return fail(messages::kInstalledSiteListNotLoaded);
}

/// Removes every server of the site list. Returns false when there is none.
bool removeServers(AnXml& siteList) {
  const AnXmlNode root(&siteList);
  AnXmlNode sites;
  if (!root.getExistingChild(&sites, L"SiteList", nullptr, nullptr, nullptr, nullptr)) return false;
  AnXmlNode server;
  bool bAny = false;
  while (sites.getExistingChild(&server, L"SpipeSite", nullptr, nullptr, nullptr, nullptr)) {
    if (!server.remove()) break;
    bAny = true;
  }
  return bAny;
}

bool bServerDataCleared() {
  return modes::clearServerData(
      [](const modes::ClearedFile& file) { return modes::clearFile(file) != modes::Cleared::kFailed; });
}

}  // namespace

bool unixCommandLineHelper::PrepareORVForUnmanagedMode() {
  const std::wstring path = modes::installedSiteList();
  WorkMark mark;
  const bool bBegun = mark.adopt(Work::kUnmanagedSwitch);
  AnXml siteList;
  if (!loadInstalledSiteList(path, siteList)) return false;
  // Without a server in it the agent is unmanaged already, but for what an earlier run left to be deleted.
  if (!removeServers(siteList)) return !bBegun || bServerDataCleared();
  mark.begin({Work::kUnmanagedSwitch, {}});
  // A site list that cannot be written back keeps its servers, and the rest goes all the same.
  static_cast<void>(siteList.writeFile(path.c_str(), false, false));
  return bServerDataCleared();
}

}  // namespace kelt::helper
