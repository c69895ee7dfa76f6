// The managed switch: site list and key files from the source directory go into the installation.
//
// Every file is replaced as a whole and is on the disk before the next one is touched, so that a power cut leaves old
// files and new ones but no halves. The source files are deleted last; until then the switch can be run again, which
// completes an interrupted one.

#include <vector>

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

enum class SiteListContent { kUnloadable, kNoSites, kNoServer, kServer };

/// What the site list at `path` holds. One that does not load is taken for Latin-1, converted where it stands, and
/// loaded again.
SiteListContent examine(const unixCommandLineHelper& helper, const std::wstring& path) {
  AnXml siteList;
  const auto load = [&] { return siteList.useExistingFile(path.c_str(), L"ns:SiteLists", nullptr, nullptr); };
  if (!load() && !(helper.ConvertSiteListToUTF8(path) && load())) return SiteListContent::kUnloadable;

  const AnXmlNode root(&siteList);
  AnXmlNode sites;
  if (!root.getExistingChild(&sites, L"SiteList", nullptr, nullptr, nullptr, nullptr)) return SiteListContent::kNoSites;
  AnXmlNode server;
  const bool bServer = sites.getExistingChild(&server, L"SpipeSite", L"ServerIP", nullptr, nullptr, nullptr);
  return bServer ? SiteListContent::kServer : SiteListContent::kNoServer;
}

/// One run of the switch: which files it has handled, and whether all went well so far. It has not until the site list
/// is copied.
class ManagedSwitch {
 public:
  explicit ManagedSwitch(std::wstring sourceDir) : m_sourceDir(std::move(sourceDir)) {}

  bool copySiteList() {
    const std::wstring source = m_sourceDir + paths::kSiteList;
    if (!AFiler::copyFile(source, std::wstring(paths::kScratchEtcDir) + paths::kSiteList)) return false;
    // Taking back means the source: an installed site list that the agent may already have read stays.
    m_takenBack.push_back(source);
    m_bResult = true;
    return true;
  }

  void rememberSiteListSource() { m_sources.push_back(m_sourceDir + paths::kSiteList); }

  void copyKeyFile(const wchar_t* name) {
    const std::wstring source = m_sourceDir + name;
    const std::wstring destination = std::wstring(paths::kInstallDir) + name;
    m_sources.push_back(source);
    if (AFiler::copyFile(source, destination)) {
      m_takenBack.push_back(destination);
      return;
    }
    base::printLine(messages::kKeyFileNotCopied + source);
    m_bResult = false;
  }

  void clearCache(const modes::ClearedFile& file) {
    if (!modes::clearFile(file)) m_bResult = false;
  }

  /// Deletes what was copied. A failure here is told, and changes nothing any more.
  void takeBack() const { static_cast<void>(deleteAll(m_takenBack)); }

  void deleteSources() {
    if (!deleteAll(m_sources)) m_bResult = false;
  }

  [[nodiscard]] bool result() const { return m_bResult; }

 private:
  static bool deleteAll(const std::vector<std::wstring>& files) {
    bool bAll = true;
    for (const std::wstring& path : files) {
      if (!modes::deleteOrComplain(path, messages::kFileNotDeleted)) bAll = false;
    }
    return bAll;
  }

  std::wstring m_sourceDir;
  bool m_bResult = false;
  std::vector<std::wstring> m_takenBack;
  std::vector<std::wstring> m_sources;
};

bool fail(const wchar_t* text) {
  base::printLine(text);
  return false;
}

}  // namespace

bool unixCommandLineHelper::managedModeTask() {
  const SiteListContent content = examine(*this, GetSourceDir() + paths::kSiteList);
  if (content == SiteListContent::kUnloadable) return fail(messages::kSiteListNotLoaded);
  if (content == SiteListContent::kNoServer) return fail(messages::kServerAddressMissing);

  ManagedSwitch change(GetSourceDir());
  // A site list without sites is not copied. Without that copy the switch fails in the end, with the caches cleared.
  if (content == SiteListContent::kServer && !change.copySiteList()) return fail(messages::kSiteListNotCopied);
  change.rememberSiteListSource();
  for (const wchar_t* name : {paths::kRequestKey, paths::kRequestKey2048, paths::kFipsMarker})
    change.copyKeyFile(name);
  change.clearCache(modes::serverSiteList());
  change.clearCache(modes::siteCache());
  for (const wchar_t* name : {paths::kServerKey, paths::kServerKey2048})
    change.copyKeyFile(name);

  if (!change.result()) change.takeBack();
  if (m_provisionFromServer) change.deleteSources();
  return change.result();
}

}  // namespace kelt::helper
