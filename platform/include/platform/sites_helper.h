#pragma once
// What the provisioning client needs to know of a site list.

#include <string>

namespace sitehlp {

/// Reads site lists. Holds a path and nothing of the file: each question loads it anew.
class CSitesHelper {
 public:
  /// `sitelistFile` is the site list to answer about where an operation is given no path of its own.
  explicit CSitesHelper(std::wstring sitelistFile);

  /// Reads the attribute `FipsMode` of the element "SiteList" under "ns:SiteLists" of the site list at `sitelistFile`
  /// (UTF-8 XML) into `fipsMode`, "0" where the attribute is absent. Returns 0, or non-zero with `fipsMode` unchanged
  /// where the file does not load or has no "SiteList".
  int GetSitelistFipsMode(const std::wstring& sitelistFile, std::wstring& fipsMode);

 private:
  std::wstring m_sitelistFile;
};

}  // namespace sitehlp
