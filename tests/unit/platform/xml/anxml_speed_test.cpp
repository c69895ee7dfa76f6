#include <ctime>
#include <functional>
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

  void SetUp() override {
    PrivateDevice::SetUp();
    putSiteList(kSites);
    ASSERT_TRUE(m_xml.useExistingFile(kPath, L"ns:SiteLists", nullptr, nullptr));
    ASSERT_TRUE(AnXmlNode(&m_xml).getExistingChild(&m_list, L"SiteList", nullptr, nullptr, nullptr, nullptr));
  }

  /// Removes every site the way the switch to unmanaged mode does, and returns how many there were.
  int removeSites(const wchar_t* attribute) {
    AnXmlNode found;
    int removed = 0;
    while (m_list.getExistingChild(&found, L"SpipeSite", attribute, nullptr, nullptr, nullptr)) {
      if (!found.remove()) return -1;
      ++removed;
    }
    return removed;
  }

  int stepThroughSites() {
    AnXmlChildIndex index(&m_list, L"SpipeSite");
    AString text;
    int steps = 0;
    while (index.moveNext(L"ServerIP", &text))
      ++steps;
    return steps;
  }

  /// Of the processor: what else the machine does is none of it.
  static double secondsOf(const std::function<void()>& action) {
    const std::clock_t start = std::clock();
    action();
    return static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
  }

  /// Stepping through the list once is the measure. Removing takes about twice that when it is in proportion, and
  /// several hundred times when each search walks all the blanks that earlier sites have left.
  void expectInProportion(const wchar_t* attribute) {
    const double stepping = secondsOf([&] { EXPECT_EQ(stepThroughSites(), kSites); });
    const double removing = secondsOf([&] { EXPECT_EQ(removeSites(attribute), kSites); });
    EXPECT_LT(removing, 30 * stepping);
    EXPECT_EQ(stepThroughSites(), 0);
  }

  static constexpr int kSites = 100000;
  AnXml m_xml;
  AnXmlNode m_list;
};

TEST_F(AnXmlSpeed, RemovingAHundredThousandSitesIsInProportionAndKeepsEveryOtherNode) {
  expectInProportion(nullptr);
  ASSERT_TRUE(m_xml.writeFile(kPath, false, false));
  std::string expected = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<ns:SiteLists>\n <SiteList>\n";
  for (int i = 0; i < kSites; ++i)
    expected += "  \n";
  EXPECT_EQ(contentOf(kFile), expected + "  <HttpSite/>\n </SiteList>\n</ns:SiteLists>\n");
}

TEST_F(AnXmlSpeed, RemovingByAttributeIsInProportionToo) {
  expectInProportion(L"ServerIP");
}

}  // namespace
}  // namespace kelt::tests
