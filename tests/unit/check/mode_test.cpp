#include "collected.h"

using kelt::tests::Collected;
using kelt::tests::kInstalled;
using kelt::tests::kInstalledSiteList;
using kelt::tests::putFile;
using kelt::tests::siteListOf;
using kelt::tests::Trouble;

namespace {

class Mode : public kelt::tests::CheckedDevice {
 protected:
  Collected look() {
    Collected findings;
    m_device = device();
    checkMode(m_device, findings);
    return findings;
  }

  kelt::check::Device m_device;
};

TEST_F(Mode, IsUnmanagedWithoutServers) {
  const Collected findings = look();
  EXPECT_EQ(findings.trouble(), Trouble{});
  EXPECT_EQ(findings.report.facts.at("mode").front(), "unmanaged");
  EXPECT_FALSE(m_device.bManaged);
}

TEST_F(Mode, IsManagedByTheServersOfTheSiteList) {
  putFile(kInstalledSiteList, siteListOf({"192.0.2.10", "b.example"}));
  const Collected findings = look();
  EXPECT_EQ(findings.trouble(), Trouble{});
  EXPECT_EQ(findings.report.facts.at("servers"), (std::vector<std::string>{"192.0.2.10", "b.example"}));
  EXPECT_EQ(findings.fact("mode.site-list"), "The agent is managed by 192.0.2.10 and 1 more.");
  EXPECT_TRUE(m_device.bManaged);
}

TEST_F(Mode, IsNotKnownWithoutASiteListThatLoads) {
  for (const char* content : {"", "<ns:SiteLists>", "<other/>"}) {
    putFile(kInstalledSiteList, content);
    const Collected findings = look();
    EXPECT_EQ(findings.trouble(), Trouble{"mode.site-list problem"}) << content;
    EXPECT_EQ(findings.fact("mode.site-list").find(kInstalledSiteList + ": "), 0U);
    EXPECT_EQ(findings.report.facts.count("mode"), 0U);
  }
}

TEST_F(Mode, OfASiteListWithoutSitesOrAddressesIsAWarning) {
  putFile(kInstalledSiteList, "<ns:SiteLists/>");
  EXPECT_EQ(look().trouble(), Trouble{"mode.site-list warning"});
  putFile(kInstalledSiteList, "<ns:SiteLists><SiteList><SpipeSite/></SiteList></ns:SiteLists>");
  EXPECT_EQ(look().trouble(), Trouble{"mode.site-list warning"});
  EXPECT_TRUE(m_device.bManaged);
}

TEST_F(Mode, HasCachesOnlyWhereItIsManaged) {
  putFile(kInstalled + "/scratch/ServerSiteList.xml", "");
  EXPECT_EQ(look().trouble(), Trouble{"mode.cache warning"});
  putFile(kInstalledSiteList, siteListOf({"a"}));
  EXPECT_EQ(look().trouble(), Trouble{});
}

}  // namespace
