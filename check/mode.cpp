// Who manages the agent: the installed site list, and what is cached of a server.

#include <algorithm>

#include "check/device.h"
#include "check/look.h"

#include "base/utf.h"
#include "helper/agent_paths.h"
#include "modes/clear_file.h"
#include "modes/site_list.h"

namespace kelt::check {
namespace {

namespace paths = helper::paths;
using modes::SiteListContent;

constexpr const char* kId = "mode.site-list";
/// More than any report needs.
constexpr std::size_t kMostServers = 1000;

/// Where the agent reads it.
std::string installedSiteList() {
  return std::string(paths::kScratchEtcDir) + paths::kSiteList;
}

void tellServers(const std::vector<std::string>& servers, Findings& findings) {
  for (std::size_t i = 0; i < std::min(servers.size(), kMostServers); ++i)
    findings.takeFact("servers", servers[i]);
}

/// What the list says. Every server in it counts, also one without an address, as the agent counts it.
void tellMode(Device& device, AnXml& siteList, Findings& findings) {
  const std::string path = installedSiteList();
  std::vector<std::string> servers = modes::serversOf(siteList);
  const std::size_t all = servers.size();
  // One without an address counts for the mode, but has nothing to be shown by.
  std::erase(servers, std::string());
  device.bManaged = all != 0;
  findings.takeFact("mode", device.bManaged ? "managed" : "unmanaged");
  tellServers(servers, findings);
  if (modes::contentOf(siteList) == SiteListContent::kNoSites)
    return findings.warning(kId, path + " has no element SiteList; the agent is unmanaged",
                            "Switch the agent to managed mode, or install it again.");
  if (!device.bManaged) return findings.ok(kId, "The agent is unmanaged: " + path + " has no servers");
  if (servers.size() != all)
    return findings.warning(kId, path + " has servers without the attribute ServerIP",
                            "Switch the agent to managed mode again, with a complete site list.");
  findings.ok(
      kId, "The agent is managed by " + servers.front() + (all > 1 ? " and " + std::to_string(all - 1) + " more" : ""));
}

/// An agent without a server that finds a cache would go on with what it says.
void checkCache(const Device& device, const std::string& path, Findings& findings) {
  const auto info = lookAt(path);
  if (!info && info.error().kind == ErrorKind::kNotFound)
    return findings.ok("mode.cache", path + " is not there: nothing is cached of a server", path);
  if (!info || !S_ISREG(info.value().st_mode)) return;  // told of among the targets of a switch
  if (device.bManaged) return findings.ok("mode.cache", path + " holds what the agent cached of its server", path);
  findings.warning("mode.cache", path + " is there although no server manages the agent",
                   "Delete it, or switch the agent to managed mode.", path);
}

}  // namespace

void checkMode(Device& device, Findings& findings) {
  findings.begin(kId, {});
  AnXml siteList;
  const std::string path = installedSiteList();
  const Status loaded = siteList.load(path, base::toUtf8(modes::kSiteListRoot));
  if (loaded) {
    tellMode(device, siteList, findings);
    for (const modes::FileToClear& cache : {modes::serverSiteList(), modes::siteCache()})
      checkCache(device, cache.path, findings);
    return;
  }
  // What the parser says has line and column, but no file.
  Error error = loaded.error();
  if (error.message.find(path) == std::string::npos) error.message.insert(0, path + ": ");
  findings.failure(State::kProblem, kId, error,
                   "Switch the agent to managed mode, which replaces the site list, or install the agent again; a "
                   "switch to unmanaged mode is refused until then.");
}

}  // namespace kelt::check
