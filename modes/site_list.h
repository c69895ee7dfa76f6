#pragma once
// The site list: which servers manage the agent.

#include <string>
#include <vector>

#include "platform/anxml.h"

namespace kelt::modes {

/// The name of its root element.
inline constexpr const wchar_t* kSiteListRoot = L"ns:SiteLists";

enum class SiteListContent {
  kUnloadable,  ///< missing, no XML document, or one with another root
  kNoSites,     ///< without "SiteList"
  kNoServer,    ///< without a server that has an address
  kServer,
};

/// What the loaded site list holds: any but kUnloadable.
[[nodiscard]] SiteListContent contentOf(AnXml& siteList);

/// The addresses of its servers, in their order, an empty one where a server has none.
[[nodiscard]] std::vector<std::string> serversOf(AnXml& siteList);

/// A site list in memory: under the root "ns:SiteLists" an element "SiteList", and in that a "SpipeSite" for each
/// server. One that was not loaded holds nothing. Operations may throw std::bad_alloc.
class SiteList {
 public:
  /// Loads the file at `path` (UTF-8). Returns false, holding nothing, where it is missing, no XML document or one with
  /// another root.
  [[nodiscard]] bool load(const std::string& path);

  /// As contentOf.
  [[nodiscard]] SiteListContent content() { return contentOf(m_document); }

  /// Whether it has a server, with an address or without.
  [[nodiscard]] bool bHasServer();

  /// Removes every server. Returns false when there was none.
  bool removeServers();

  /// Replaces the file at `path` by what is held. Returns false when that fails; the file is then as
  /// AnXml::writeFile leaves it.
  [[nodiscard]] bool write(const std::string& path);

 private:
  AnXml m_document;
};

}  // namespace kelt::modes
