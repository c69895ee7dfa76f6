#pragma once
// The site list: which servers manage the agent.

#include <string>

#include "platform/anxml.h"

namespace kelt::modes {

/// A site list in memory: under the root "ns:SiteLists" an element "SiteList", and in that a "SpipeSite" for each
/// server. One that was not loaded holds nothing. Operations may throw std::bad_alloc.
class SiteList {
 public:
  /// Loads the file at `path` (UTF-8). Returns false, holding nothing, where it is missing, no XML document or one with
  /// another root.
  [[nodiscard]] bool load(const std::string& path);

  /// Whether it has the element that holds the servers.
  [[nodiscard]] bool bHasSites();

  /// Whether it has a server, and one with an address.
  [[nodiscard]] bool bHasServer();
  [[nodiscard]] bool bHasServerAddress();

  /// Removes every server. Returns false when there was none.
  bool removeServers();

  /// Replaces the file at `path` by what is held. Returns false when that fails; the file is then as
  /// AnXml::writeFile leaves it.
  [[nodiscard]] bool write(const std::string& path);

 private:
  AnXml m_document;
};

}  // namespace kelt::modes
