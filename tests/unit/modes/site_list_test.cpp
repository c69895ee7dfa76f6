#include "modes/site_list.h"

#include "support/private_device.h"

namespace kelt::modes {
namespace {

using tests::putFile;

class SiteListTest : public tests::PrivateDevice {
 protected:
  /// The site list with this below its root.
  static SiteList& loaded(SiteList& siteList, const std::string& content) {
    putFile("/tmp/list", "<ns:SiteLists xmlns:ns=\"x\">" + content + "</ns:SiteLists>");
    EXPECT_TRUE(siteList.load("/tmp/list"));
    return siteList;
  }
};

TEST_F(SiteListTest, HoldsNothingUnlessItIsOne) {
  SiteList siteList;
  EXPECT_EQ(siteList.content(), SiteListContent::kNoSites);
  for (const char* content : {"", "<SiteLists/>", "<ns:SiteLists>", "<Other xmlns:ns=\"x\"/>"}) {
    putFile("/tmp/list", content);
    EXPECT_FALSE(siteList.load("/tmp/list")) << content;
    EXPECT_EQ(siteList.content(), SiteListContent::kNoSites) << content;
    EXPECT_FALSE(siteList.bHasServer()) << content;
    EXPECT_FALSE(siteList.removeServers()) << content;
  }
  EXPECT_FALSE(siteList.load("/tmp/missing"));
}

TEST_F(SiteListTest, TellsHowMuchItHolds) {
  SiteList siteList;
  EXPECT_EQ(loaded(siteList, "<SpipeSite ServerIP=\"1\"/>").content(), SiteListContent::kNoSites);
  EXPECT_FALSE(siteList.bHasServer());
  EXPECT_EQ(loaded(siteList, "<SiteList/>").content(), SiteListContent::kNoServer);
  EXPECT_FALSE(siteList.bHasServer());
  EXPECT_TRUE(loaded(siteList, "<SiteList><SpipeSite/></SiteList>").bHasServer());
  EXPECT_EQ(siteList.content(), SiteListContent::kNoServer);
  const std::string second = "<SiteList><SpipeSite/><SpipeSite ServerIP=\"\"/></SiteList>";
  EXPECT_EQ(loaded(siteList, second).content(), SiteListContent::kServer);
}

std::vector<std::string> serversIn(const std::string& content) {
  putFile("/tmp/list", "<ns:SiteLists xmlns:ns=\"x\">" + content + "</ns:SiteLists>");
  AnXml document;
  EXPECT_TRUE(document.useExistingFile(L"/tmp/list", kSiteListRoot, nullptr, nullptr));
  return serversOf(document);
}

TEST_F(SiteListTest, NamesItsServersInTheirOrder) {
  using Servers = std::vector<std::string>;
  EXPECT_EQ(serversIn(""), Servers{});
  EXPECT_EQ(serversIn("<SiteList><SpipeSite/></SiteList>"), Servers{""});
  EXPECT_EQ(serversIn("<SiteList><SpipeSite ServerIP=\"a\"/><x/><SpipeSite ServerIP=\"b\"/></SiteList>"),
            (Servers{"a", "b"}));
}

TEST_F(SiteListTest, LosesEveryServerAndNothingElse) {
  SiteList siteList;
  loaded(siteList, "<SiteList><SpipeSite/><HttpSite/><SpipeSite ServerIP=\"1\"/></SiteList>");
  EXPECT_TRUE(siteList.removeServers());
  EXPECT_FALSE(siteList.bHasServer());
  EXPECT_FALSE(siteList.removeServers());
  ASSERT_TRUE(siteList.write("/tmp/\xC3\xA9"));
  EXPECT_NE(tests::contentOf("/tmp/\xC3\xA9").find("<SiteList><HttpSite/></SiteList>"), std::string::npos);
  EXPECT_FALSE(siteList.write("/tmp/missing/list"));
}

}  // namespace
}  // namespace kelt::modes
