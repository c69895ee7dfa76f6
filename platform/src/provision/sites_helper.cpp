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
  // The first "SiteList" that states a mode, not the first of all: another may stand before it without one.
  const bool bStated = root.tryGetChild(&siteList, L"SiteList", L"FipsMode", nullptr, nullptr, &mode);
  fipsMode = bStated ? mode.str() : L"0";
  return 0;
}

}  // namespace sitehlp
