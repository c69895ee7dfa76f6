#include "platform/iconfiguration.h"

#include <dirent.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "support/private_device.h"

namespace kelt::tests {
namespace {

using quorvane_com::orv::configuration::IConfiguration;

const std::string kAgent = "/etc/orv.d/ZENTORAGENT1000";

std::string configuration(const std::string& elements) {
  return "<Configuration>" + elements + "</Configuration>";
}

class Configuration : public PrivateDevice {
 protected:
  void SetUp() override {
    PrivateDevice::SetUp();
    m_configuration.SetConfigurationDirectory(L"/etc/orv.d");
  }

  /// The object is the process's: other tests find it as it was.
  void TearDown() override { m_configuration.SetConfigurationDirectory(L"/etc/orv.d"); }

  void expectDefaults() {
    EXPECT_EQ(m_configuration.GetAgentBinDirectory(), L"/opt/Quorvane/orv/bin");
    EXPECT_EQ(m_configuration.GetFrameworkDataDirectory(), L"/opt/Quorvane/orv/scratch");
  }

  IConfiguration& m_configuration = IConfiguration::GetConfiguration();
};

TEST_F(Configuration, IsOneObject) {
  EXPECT_EQ(&IConfiguration::GetConfiguration(), &IConfiguration::GetConfiguration());
}

TEST_F(Configuration, GivesTheTextsOfTheAgentsOwnConfiguration) {
  putFile("/etc/orv.d/OTHER/config.xml", configuration("<AgentBinDirectory>/no</AgentBinDirectory>"));
  putFile(kAgent + "/config.xml", configuration("<Version>1</Version><AgentBinDirectory>/a/bin</AgentBinDirectory>"
                                                "<FrameworkDataDirectory>/a/d\xC3\xA9 1</FrameworkDataDirectory>"));
  EXPECT_EQ(m_configuration.GetAgentBinDirectory(), L"/a/bin");
  EXPECT_EQ(m_configuration.GetFrameworkDataDirectory(), L"/a/d\xE9 1");
}

TEST_F(Configuration, ReadsTheFileEachTimeItIsAsked) {
  putFile(kAgent + "/config.xml", configuration("<AgentBinDirectory>/one</AgentBinDirectory>"));
  EXPECT_EQ(m_configuration.GetAgentBinDirectory(), L"/one");
  putFile(kAgent + "/config.xml", configuration("<AgentBinDirectory>/two</AgentBinDirectory>"));
  EXPECT_EQ(m_configuration.GetAgentBinDirectory(), L"/two");
}

TEST_F(Configuration, TakesTheFirstElementOfTheName) {
  putFile(kAgent + "/config.xml",
          configuration("<x><AgentBinDirectory>/in</AgentBinDirectory></x><AgentBinDirectory>/1</AgentBinDirectory>"
                        "<AgentBinDirectory>/2</AgentBinDirectory>"));
  EXPECT_EQ(m_configuration.GetAgentBinDirectory(), L"/1");
}

TEST_F(Configuration, GivesTheDefaultsWithoutADirectoryOrAFile) {
  expectDefaults();
  putDirectory(kAgent);
  expectDefaults();
  m_configuration.SetConfigurationDirectory(L"/etc/missing");
  expectDefaults();
  m_configuration.SetConfigurationDirectory(L"");
  expectDefaults();
}

TEST_F(Configuration, GivesTheDefaultsForAFileThatDoesNotLoad) {
  const std::string element = "<AgentBinDirectory>/a</AgentBinDirectory>";
  for (const std::string& content : {std::string(), "<Configuration>" + element, "<Other>" + element + "</Other>",
                                     "<!DOCTYPE Configuration>" + configuration(element)}) {
    putFile(kAgent + "/config.xml", content);
    expectDefaults();
  }
}

TEST_F(Configuration, GivesTheDefaultsForAFileThatOthersMayHaveWritten) {
  const std::string content = configuration(
      "<AgentBinDirectory>/a</AgentBinDirectory>"
      "<FrameworkDataDirectory>/b</FrameworkDataDirectory>");
  putFile(kAgent + "/config.xml", content, 0666);
  expectDefaults();
  ASSERT_EQ(::chmod((kAgent + "/config.xml").c_str(), 0644), 0);
  EXPECT_EQ(m_configuration.GetFrameworkDataDirectory(), L"/b");
  for (const std::string& directory : {kAgent, std::string("/etc/orv.d")}) {
    ASSERT_EQ(::chmod(directory.c_str(), 0777), 0);
    expectDefaults();
    ASSERT_EQ(::chmod(directory.c_str(), 0755), 0);
  }
  ASSERT_EQ(::unlink((kAgent + "/config.xml").c_str()), 0);
  putFile("/tmp/config.xml", content);
  ASSERT_EQ(::symlink("/tmp/config.xml", (kAgent + "/config.xml").c_str()), 0);
  expectDefaults();
}

TEST_F(Configuration, GivesTheDefaultForAMissingOrBlankElementAlone) {
  putFile(kAgent + "/config.xml", configuration("<AgentBinDirectory> \n\t</AgentBinDirectory>"
                                                "<FrameworkDataDirectory>/data</FrameworkDataDirectory>"));
  EXPECT_EQ(m_configuration.GetAgentBinDirectory(), L"/opt/Quorvane/orv/bin");
  EXPECT_EQ(m_configuration.GetFrameworkDataDirectory(), L"/data");
  putFile(kAgent + "/config.xml",
          configuration("<AgentBinDirectory>/bin</AgentBinDirectory><FrameworkDataDirectory/>"));
  EXPECT_EQ(m_configuration.GetAgentBinDirectory(), L"/bin");
  EXPECT_EQ(m_configuration.GetFrameworkDataDirectory(), L"/opt/Quorvane/orv/scratch");
}

TEST_F(Configuration, FindsTheMarkerAnywhereInTheNameAndFollowsALink) {
  putFile("/opt/real/config.xml", configuration("<AgentBinDirectory>/linked</AgentBinDirectory>"));
  ASSERT_EQ(::symlink("/opt/real", "/etc/orv.d/x-ZENTORAGENT-y"), 0);
  EXPECT_EQ(m_configuration.GetAgentBinDirectory(), L"/linked");
}

TEST_F(Configuration, SkipsFilesAndNamesInOtherCase) {
  putFile("/etc/orv.d/ZENTORAGENT", configuration("<AgentBinDirectory>/no</AgentBinDirectory>"));
  putFile("/etc/orv.d/zentoragent/config.xml", configuration("<AgentBinDirectory>/no</AgentBinDirectory>"));
  expectDefaults();
}

TEST_F(Configuration, TakesTheFirstDirectoryOfTheListing) {
  putFile("/etc/orv.d/ZENTORAGENT1/config.xml", configuration("<AgentBinDirectory>ZENTORAGENT1</AgentBinDirectory>"));
  putFile("/etc/orv.d/aZENTORAGENT/config.xml", configuration("<AgentBinDirectory>aZENTORAGENT</AgentBinDirectory>"));
  std::string first;
  DIR* listing = ::opendir("/etc/orv.d");
  ASSERT_NE(listing, nullptr);
  while (first.empty()) {
    const dirent* entry = ::readdir(listing);
    ASSERT_NE(entry, nullptr);
    if (entry->d_name[0] != '.') first = entry->d_name;
  }
  ::closedir(listing);
  EXPECT_EQ(m_configuration.GetAgentBinDirectory(), std::wstring(first.begin(), first.end()));
}

TEST_F(Configuration, AcceptsADirectoryThatEndsInASlash) {
  putFile("/opt/conf/ZENTORAGENT/config.xml", configuration("<AgentBinDirectory>/b</AgentBinDirectory>"));
  m_configuration.SetConfigurationDirectory(L"/opt/conf/");
  EXPECT_EQ(m_configuration.GetAgentBinDirectory(), L"/b");
}

}  // namespace
}  // namespace kelt::tests
