#pragma once
// What a site list says.

#include <string>
#include <vector>

#include "platform/anxml.h"

namespace kelt::modes {

/// The name of its root element.
inline constexpr const wchar_t* kSiteListRoot = L"ns:SiteLists";

enum class SiteListContent {
  kUnloadable,
  kNoSites,   ///< without "SiteList"
  kNoServer,  ///< without a server that has an address
  kServer,
};

/// What the loaded site list holds.
[[nodiscard]] SiteListContent contentOf(AnXml& siteList);

/// The addresses of its servers, in their order, an empty one where a server has none.
[[nodiscard]] std::vector<std::wstring> serversOf(AnXml& siteList);

}  // namespace kelt::modes
