// The unmanaged switch: the installed site list loses its servers, and what belongs to the server goes.
//
// The site list comes first, replaced as a whole. A power cut before that leaves an agent that is managed as it was and
// can be switched again; one after it leaves an agent without servers, and possibly legacy keys and caches of the
// server that the next switch to managed mode replaces and clears.

#include <array>

#include "base/console.h"
#include "helper/agent_paths.h"
#include "helper/unix_command_line_helper.h"
#include "modes/clear_file.h"
#include "modes/messages.h"
#include "platform/afile.h"
#include "platform/anxml.h"

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

modes::ClearedFile legacyKey(const wchar_t* name) {
  return {std::wstring(paths::kInstallDir) + name, messages::kKeyFileInaccessible, messages::kKeyFileNotDeleted};
}

}  // namespace

bool unixCommandLineHelper::PrepareORVForUnmanagedMode() {
  const std::wstring path = std::wstring(paths::kScratchEtcDir) + paths::kSiteList;
  AnXml siteList;
  if (!loadInstalledSiteList(path, siteList)) return false;
  // Without a server in it the agent is unmanaged already.
  if (!removeServers(siteList)) return true;
  // A site list that cannot be written back keeps its servers, and the rest goes all the same.
  static_cast<void>(siteList.writeFile(path.c_str(), false, false));

  bool bResult = true;
  for (const modes::ClearedFile& file :
       {legacyKey(paths::kRequestKey), legacyKey(paths::kServerKey), modes::serverSiteList(), modes::siteCache()}) {
    if (modes::clearFile(file) == modes::Cleared::kFailed) bResult = false;
  }
  return bResult;
}

}  // namespace kelt::helper
