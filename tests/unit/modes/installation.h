#pragma once
// An installed agent and a source directory to switch it from.

#include <string>
#include <vector>

#include "support/agent_on_device.h"
#include "support/private_device.h"

namespace kelt::tests {

inline const std::string kInstalled = "/opt/Quorvane/orv";
inline const std::string kInstalledSiteList = "/opt/Quorvane/orv/scratch/etc/SiteList.xml";
inline const std::string kServerSiteList = "/opt/Quorvane/orv/scratch/ServerSiteList.xml";
inline const std::string kSiteCache = "/opt/Quorvane/orv/scratch/etc/sitecache.bin";

/// The names of the key files, in the order in which they are checked.
inline const std::vector<std::string> kKeyNames{"req2048seckey.bin", "reqseckey.bin", "agentfipsmode",
                                                "sr2048pubkey.bin", "srpubkey.bin"};

inline const std::string kSiteListWithServer =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<ns:SiteLists xmlns:ns=\"urn:test:site-list\">\n"
    "  <SiteList Default=\"1\">\n"
    "    <SpipeSite Name=\"Server\" ServerIP=\"192.0.2.1:8443\"/>\n"
    "  </SiteList>\n"
    "</ns:SiteLists>\n";

/// A device with the directories of an installed agent and a server of its own in the caches.
class Installation : public PrivateDevice {
 protected:
  void SetUp() override {
    PrivateDevice::SetUp();
    putDirectory(kInstalled + "/scratch/etc");
    putFile(kServerSiteList, "cached site list");
    putFile(kSiteCache, "cached sites");
  }
};

/// A complete source directory: the site list, and key files that hold their own names.
inline void putSource(const std::string& directory, const std::string& siteList = kSiteListWithServer) {
  putFile(directory + "/SiteList.xml", siteList);
  for (const std::string& name : kKeyNames)
    putFile(directory + "/" + name, name, 0600);
}

/// Everything below /opt/Quorvane, logs apart. For comparing before and after.
[[nodiscard]] Tree installedTree();

/// The texts that the tool put into the agent's log, each as its mark, a blank and the text.
[[nodiscard]] std::vector<std::string> logLines();

/// A name that cannot be examined: a link to itself.
void putLoop(const std::string& path);

}  // namespace kelt::tests
