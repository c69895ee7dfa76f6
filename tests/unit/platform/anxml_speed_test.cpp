#include <chrono>
#include <gtest/gtest.h>
#include <string>

#include "support/private_device.h"

#include "platform/anxml.h"

namespace kelt::tests {
namespace {

constexpr const char* kFile = "/opt/Quorvane/list.xml";
constexpr const wchar_t* kPath = L"/opt/Quorvane/list.xml";

class AnXmlSpeed : public PrivateDevice {
 protected:
  static void putSiteList(int sites) {
    std::string text = "<ns:SiteLists>\n <SiteList>\n";
    for (int i = 0; i < sites; ++i)
      text += "  <SpipeSite Name=\"s\" ServerIP=\"10.0.0.1\"/>\n";
    putFile(kFile, text + "  <HttpSite/>\n </SiteList>\n</ns:SiteLists>");
  }

  /// Removes every site the way the switch to unmanaged mode does, and returns how many there were.
  static int removeSites(AnXml& xml, const wchar_t* attribute) {
    AnXmlNode list;
    AnXmlNode found;
    EXPECT_TRUE(AnXmlNode(&xml).getExistingChild(&list, L"SiteList", nullptr, nullptr, nullptr, nullptr));
    int removed = 0;
    while (list.getExistingChild(&found, L"SpipeSite", attribute, nullptr, nullptr, nullptr)) {
      EXPECT_TRUE(found.remove());
      ++removed;
    }
    return removed;
  }
};

TEST_F(AnXmlSpeed, RemovingAHundredThousandSitesKeepsEveryOtherNode) {
  constexpr int kSites = 100000;
  putSiteList(kSites);
  AnXml xml;
  ASSERT_TRUE(xml.useExistingFile(kPath, L"ns:SiteLists", nullptr, nullptr));

  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(removeSites(xml, nullptr), kSites);
  const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
  // In proportion it is a few hundredths of a second; walking all blanks again for each site takes over ten seconds.
  EXPECT_LT(taken.count(), 3.0);

  ASSERT_TRUE(xml.writeFile(kPath, false, false));
  std::string expected = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<ns:SiteLists>\n <SiteList>\n";
  for (int i = 0; i < kSites; ++i)
    expected += "  \n";
  EXPECT_EQ(contentOf(kFile), expected + "  <HttpSite/>\n </SiteList>\n</ns:SiteLists>\n");
}

TEST_F(AnXmlSpeed, RemovingByAttributeIsInProportionToo) {
  putSiteList(100000);
  AnXml xml;
  ASSERT_TRUE(xml.useExistingFile(kPath, L"ns:SiteLists", nullptr, nullptr));
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(removeSites(xml, L"ServerIP"), 100000);
  const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
  EXPECT_LT(taken.count(), 3.0);
}

TEST_F(AnXmlSpeed, SteppingThroughAHundredThousandSitesIsInProportion) {
  putSiteList(100000);
  AnXml xml;
  AnXmlNode list;
  ASSERT_TRUE(xml.useExistingFile(kPath, L"ns:SiteLists", nullptr, nullptr));
  ASSERT_TRUE(AnXmlNode(&xml).getExistingChild(&list, L"SiteList", nullptr, nullptr, nullptr, nullptr));
  AnXmlChildIndex index(&list, L"SpipeSite");
  AString text;
  int steps = 0;
  while (index.moveNext(L"ServerIP", &text))
    ++steps;
  EXPECT_EQ(steps, 100000);
  EXPECT_EQ(text.str(), L"10.0.0.1");
}

}  // namespace
}  // namespace kelt::tests
