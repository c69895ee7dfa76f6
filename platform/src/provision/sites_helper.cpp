#include "platform/sites_helper.h"

#include <utility>

#include "platform/anxml.h"

namespace sitehlp {

CSitesHelper::CSitesHelper(std::wstring sitelistFile) : m_sitelistFile(std::move(sitelistFile)) {}

int CSitesHelper::GetSitelistFipsMode(const std::wstring& sitelistFile, std::wstring& fipsMode) {
  const std::wstring& path = sitelistFile.empty() ? m_sitelistFile : sitelistFile;
  AnXml document;
  if (!document.useExistingFile(path.c_str(), L"ns:SiteLists", nullptr, nullptr)) return 1;
  const AnXmlNode root(&document);
  AnXmlNode siteList;
  if (!root.getExistingChild(&siteList, L"SiteList", nullptr, nullptr, nullptr, nullptr)) return 2;
  AString mode;
  const bool stated = root.tryGetChild(&siteList, L"SiteList", L"FipsMode", nullptr, nullptr, &mode);
  fipsMode = stated ? mode.str() : L"0";
  return 0;
}

}  // namespace sitehlp
