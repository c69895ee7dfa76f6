#include "modes/site_list.h"

#include "base/utf.h"

namespace kelt::modes {
namespace {

/// The element that holds the servers. Returns whether there is one.
bool findSites(AnXml& document, AnXmlNode& sites) {
  return AnXmlNode(&document).getExistingChild(&sites, L"SiteList", nullptr, nullptr, nullptr, nullptr);
}

/// The first server, or the first with the attribute `attribute`. Returns whether there is one.
bool findServer(const AnXmlNode& sites, AnXmlNode& server, const wchar_t* attribute = nullptr) {
  return sites.getExistingChild(&server, L"SpipeSite", attribute, nullptr, nullptr, nullptr);
}

}  // namespace

bool SiteList::load(const std::string& path) {
  return m_document.useExistingFile(base::toWide(path).c_str(), L"ns:SiteLists", nullptr, nullptr);
}

bool SiteList::bHasSites() {
  AnXmlNode sites;
  return findSites(m_document, sites);
}

bool SiteList::bHasServer() {
  AnXmlNode sites;
  AnXmlNode server;
  return findSites(m_document, sites) && findServer(sites, server);
}

bool SiteList::bHasServerAddress() {
  AnXmlNode sites;
  AnXmlNode server;
  return findSites(m_document, sites) && findServer(sites, server, L"ServerIP");
}

bool SiteList::removeServers() {
  AnXmlNode sites;
  if (!findSites(m_document, sites)) return false;
  AnXmlNode server;
  bool bAny = false;
  while (findServer(sites, server) && server.remove())
    bAny = true;
  return bAny;
}

bool SiteList::write(const std::string& path) {
  return m_document.writeFile(base::toWide(path).c_str(), false, false);
}

}  // namespace kelt::modes
