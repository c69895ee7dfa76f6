#include "modes/site_list.h"

#include <gtest/gtest.h>
#include <span>
#include <string>

#include "installation.h"

#include "modes/config_values.h"
#include "modes/key_file_check.h"
#include "modes/source_search.h"

using namespace kelt::modes;  // NOLINT(google-build-using-namespace)
using kelt::tests::putFile;

namespace {

/// What a switch would find, without its being done.
class Looks : public kelt::tests::Installation {
 protected:
  void load(const std::string& inner) {
    const std::string text = "<ns:SiteLists>" + inner + "</ns:SiteLists>";
    ASSERT_TRUE(
        m_siteList.load(std::span(reinterpret_cast<const unsigned char*>(text.data()), text.size()), "ns:SiteLists")
            .ok());
  }

  AnXml m_siteList;
};

TEST_F(Looks, TellWhatASiteListHolds) {
  load("");
  EXPECT_EQ(contentOf(m_siteList), SiteListContent::kNoSites);
  EXPECT_TRUE(serversOf(m_siteList).empty());
  load("<SiteList><SpipeSite/></SiteList>");
  EXPECT_EQ(contentOf(m_siteList), SiteListContent::kNoServer);
  EXPECT_EQ(serversOf(m_siteList), std::vector<std::wstring>{L""});
  load("<SiteList><SpipeSite ServerIP=\"a\"/><x/><SpipeSite ServerIP=\"b\"/></SiteList>");
  EXPECT_EQ(contentOf(m_siteList), SiteListContent::kServer);
  EXPECT_EQ(serversOf(m_siteList), (std::vector<std::wstring>{L"a", L"b"}));
}

TEST_F(Looks, TellTheStateOfEachKeyFileAndMakeNone) {
  putFile("/tmp/keys/req2048seckey.bin", "key");
  putFile("/tmp/keys/agentfipsmode", std::string(65537, '0'));
  kelt::tests::putDirectory("/tmp/keys/srpubkey.bin");
  const auto found = examineKeyFiles(L"/tmp/keys");
  ASSERT_EQ(found.size(), 5U);
  EXPECT_EQ(found[0].state, KeyFileState::kThere);
  EXPECT_EQ(found[1].path, L"/tmp/keys/reqseckey.bin");
  EXPECT_EQ(found[1].state, KeyFileState::kToBeMade);
  EXPECT_EQ(found[2].state, KeyFileState::kTooLarge);
  EXPECT_EQ(found[3].state, KeyFileState::kMissing);
  EXPECT_EQ(found[4].state, KeyFileState::kNotRegular);
  EXPECT_FALSE(kelt::tests::exists("/tmp/keys/reqseckey.bin"));
}

TEST_F(Looks, TellWhereASourceIsLookedFor) {
  EXPECT_EQ(sourceCandidates(L"keys", L"/here"), (std::array<std::wstring, 3>{L"keys", L"/here/keys", L"/here"}));
}

TEST_F(Looks, TellWhatATextBecomesWithAValueInIt) {
  EXPECT_EQ(withValue("<a>old</a>", "a", "new"), "<a>new</a>");
  EXPECT_EQ(withValue("<a/>", "a", "new"), std::nullopt);
  EXPECT_EQ(withValue("</a><a>", "a", "new"), "</a><a>new</a><a>");
}

}  // namespace
