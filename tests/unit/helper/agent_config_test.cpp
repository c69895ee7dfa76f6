#include "helper/agent_config.h"

#include "support/private_device.h"

namespace kelt::helper {
namespace {

using tests::putFile;

class AgentConfigTest : public tests::PrivateDevice {
 protected:
  /// Loads a file of this content.
  bool bLoads(const std::string& content) {
    putFile("/etc/orv.d/ZENTORAGENT/config.xml", content);
    return m_config.load(L"/etc/orv.d/ZENTORAGENT/config.xml");
  }

  AgentConfig m_config;
};

TEST_F(AgentConfigTest, ReadsTheTextOfAnElement) {
  ASSERT_TRUE(bLoads("<Configuration><Version>5.7.1</Version></Configuration>"));
  EXPECT_EQ(m_config.firstText(L"Version"), L"5.7.1");
  EXPECT_EQ(m_config.firstTextOrEmpty(L"Version"), L"5.7.1");
}

TEST_F(AgentConfigTest, OnlyTheFirstChildOfANameCounts) {
  ASSERT_TRUE(bLoads("<Configuration><Other/><Version>1</Version><Version>2</Version></Configuration>"));
  EXPECT_EQ(m_config.firstText(L"Version"), L"1");
}

TEST_F(AgentConfigTest, OnlyChildrenOfTheRootCount) {
  ASSERT_TRUE(bLoads("<Configuration><Old><Version>1</Version></Old></Configuration>"));
  EXPECT_EQ(m_config.firstText(L"Version"), std::nullopt);
}

TEST_F(AgentConfigTest, TellsAMissingElementFromAnEmptyOne) {
  ASSERT_TRUE(bLoads("<Configuration><StartCommand/></Configuration>"));
  EXPECT_EQ(m_config.firstText(L"StartCommand"), L"");
  EXPECT_EQ(m_config.firstText(L"StopCommand"), std::nullopt);
  EXPECT_EQ(m_config.firstTextOrEmpty(L"StopCommand"), L"");
}

TEST_F(AgentConfigTest, KeepsTheBlanksOfAText) {
  ASSERT_TRUE(bLoads("<Configuration><HotFixVersions> A, B </HotFixVersions></Configuration>"));
  EXPECT_EQ(m_config.firstText(L"HotFixVersions"), L" A, B ");
}

TEST_F(AgentConfigTest, DoesNotLoadAnotherRootElement) {
  EXPECT_FALSE(bLoads("<Settings><Version>1</Version></Settings>"));
  EXPECT_EQ(m_config.firstText(L"Version"), std::nullopt);
}

TEST_F(AgentConfigTest, DoesNotLoadWhatIsNotWellFormed) {
  EXPECT_FALSE(bLoads("<Configuration><Version>1</Configuration>"));
}

TEST_F(AgentConfigTest, DoesNotLoadAMissingFileOrAnEmptyPath) {
  EXPECT_FALSE(m_config.load(L"/etc/orv.d/ZENTORAGENT/config.xml"));
  EXPECT_FALSE(m_config.load(L""));
  EXPECT_EQ(m_config.firstText(L"Version"), std::nullopt);
}

}  // namespace
}  // namespace kelt::helper
