#include "platform/sites_helper.h"

#include "support/private_device.h"

namespace kelt::tests {
namespace {

class SitesHelper : public PrivateDevice {
 protected:
  static constexpr const wchar_t* kPath = L"/tmp/sitelist.xml";

  /// The mode read from a document, or "status" where it is refused.
  static std::wstring modeIn(const std::string& document) {
    putFile("/tmp/sitelist.xml", document);
    std::wstring mode = L"unchanged";
    const int status = sitehlp::CSitesHelper(kPath).GetSitelistFipsMode(kPath, mode);
    if (status == 0) return mode;
    EXPECT_EQ(mode, L"unchanged");
    return L"refused";
  }
};

TEST_F(SitesHelper, ReadsTheModeAsItIsWritten) {
  EXPECT_EQ(modeIn(R"(<ns:SiteLists xmlns:ns="n"><SiteList FipsMode="1"/></ns:SiteLists>)"), L"1");
  EXPECT_EQ(modeIn(R"(<ns:SiteLists xmlns:ns="n"><SiteList FipsMode="0"/></ns:SiteLists>)"), L"0");
  EXPECT_EQ(modeIn(R"(<ns:SiteLists xmlns:ns="n"><SiteList FipsMode="on &amp; off"/></ns:SiteLists>)"), L"on & off");
  EXPECT_EQ(modeIn(R"(<ns:SiteLists xmlns:ns="n"><SiteList FipsMode=""/></ns:SiteLists>)"), L"");
}

TEST_F(SitesHelper, TakesZeroWhereNoModeIsStated) {
  EXPECT_EQ(modeIn(R"(<ns:SiteLists xmlns:ns="n"><SiteList Default="1"/></ns:SiteLists>)"), L"0");
}

TEST_F(SitesHelper, RefusesDocumentsWithoutASiteList) {
  EXPECT_EQ(modeIn(R"(<ns:SiteLists xmlns:ns="n"/>)"), L"refused");
  EXPECT_EQ(modeIn(R"(<ns:SiteLists xmlns:ns="n"><a><SiteList FipsMode="1"/></a></ns:SiteLists>)"), L"refused");
  EXPECT_EQ(modeIn(R"(<SiteLists><SiteList FipsMode="1"/></SiteLists>)"), L"refused");
}

TEST_F(SitesHelper, RefusesWhatDoesNotLoad) {
  EXPECT_EQ(modeIn(""), L"refused");
  EXPECT_EQ(modeIn("<ns:SiteLists><SiteList FipsMode=\"1\"/>"), L"refused");
  EXPECT_EQ(modeIn("<!DOCTYPE x><ns:SiteLists><SiteList FipsMode=\"1\"/></ns:SiteLists>"), L"refused");
}

TEST_F(SitesHelper, RefusesAMissingFileAndADirectory) {
  std::wstring mode = L"unchanged";
  EXPECT_NE(sitehlp::CSitesHelper(kPath).GetSitelistFipsMode(L"/tmp/missing.xml", mode), 0);
  EXPECT_NE(sitehlp::CSitesHelper(kPath).GetSitelistFipsMode(L"/tmp", mode), 0);
  EXPECT_EQ(mode, L"unchanged");
}

TEST_F(SitesHelper, AnswersAboutItsOwnFileWhereNoneIsNamed) {
  putFile("/tmp/sitelist.xml", R"(<ns:SiteLists xmlns:ns="n"><SiteList FipsMode="1"/></ns:SiteLists>)");
  std::wstring mode;
  EXPECT_EQ(sitehlp::CSitesHelper(kPath).GetSitelistFipsMode(L"", mode), 0);
  EXPECT_EQ(mode, L"1");
}

}  // namespace
}  // namespace kelt::tests
