#include "modes/site_list.h"

namespace kelt::modes {
namespace {

constexpr const wchar_t* kSites = L"SiteList";
constexpr const wchar_t* kServer = L"SpipeSite";
constexpr const wchar_t* kAddress = L"ServerIP";

}  // namespace

SiteListContent contentOf(AnXml& siteList) {
  const AnXmlNode root(&siteList);
  AnXmlNode sites;
  if (!root.getExistingChild(&sites, kSites, nullptr, nullptr, nullptr, nullptr)) return SiteListContent::kNoSites;
  AnXmlNode server;
  const bool bServer = sites.getExistingChild(&server, kServer, kAddress, nullptr, nullptr, nullptr);
  return bServer ? SiteListContent::kServer : SiteListContent::kNoServer;
}

std::vector<std::wstring> serversOf(AnXml& siteList) {
  const AnXmlNode root(&siteList);
  AnXmlNode sites;
  std::vector<std::wstring> addresses;
  if (!root.getExistingChild(&sites, kSites, nullptr, nullptr, nullptr, nullptr)) return addresses;
  AnXmlChildIndex servers(&sites, kServer);
  AString address;
  while (servers.moveNext(kAddress, &address))
    addresses.push_back(address.str());
  return addresses;
}

}  // namespace kelt::modes
