#include "modes/site_list.h"

#include "base/utf.h"

namespace kelt::modes {
namespace {

constexpr const wchar_t* kServer = L"SpipeSite";
constexpr const wchar_t* kAddress = L"ServerIP";

/// The element that holds the servers. Returns whether there is one.
bool findSites(AnXml& document, AnXmlNode& sites) {
  return AnXmlNode(&document).getExistingChild(&sites, L"SiteList", nullptr, nullptr, nullptr, nullptr);
}

/// The first server, or the first with the attribute `attribute`. Returns whether there is one.
bool findServer(const AnXmlNode& sites, AnXmlNode& server, const wchar_t* attribute = nullptr) {
  return sites.getExistingChild(&server, kServer, attribute, nullptr, nullptr, nullptr);
}

}  // namespace

SiteListContent contentOf(AnXml& siteList) {
  AnXmlNode sites;
  AnXmlNode server;
  if (!findSites(siteList, sites)) return SiteListContent::kNoSites;
  // One without an address is of no use to the agent.
  return findServer(sites, server, kAddress) ? SiteListContent::kServer : SiteListContent::kNoServer;
}

std::vector<std::string> serversOf(AnXml& siteList) {
  AnXmlNode sites;
  std::vector<std::string> addresses;
  if (!findSites(siteList, sites)) return addresses;
  AnXmlChildIndex servers(&sites, kServer);
  AString address;
  while (servers.moveNext(kAddress, &address))
    addresses.push_back(base::toUtf8(address.str()));
  return addresses;
}

bool SiteList::load(const std::string& path) {
  return m_document.useExistingFile(base::toWide(path).c_str(), kSiteListRoot, nullptr, nullptr);
}

bool SiteList::bHasServer() {
  AnXmlNode sites;
  AnXmlNode server;
  return findSites(m_document, sites) && findServer(sites, server);
}

bool SiteList::removeServers() {
  AnXmlNode sites;
  if (!findSites(m_document, sites)) return false;
  AnXmlNode server;
  bool bAny = false;
  // Always the first that is left, as a node that was removed leads to no other.
  while (findServer(sites, server) && server.remove())
    bAny = true;
  return bAny;
}

bool SiteList::write(const std::string& path) {
  return m_document.writeFile(base::toWide(path).c_str(), false, false);
}

}  // namespace kelt::modes
