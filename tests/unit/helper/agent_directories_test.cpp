#include "helper/agent_directories.h"

#include "support/private_device.h"

namespace kelt::helper {
namespace {

class AgentDirectories : public tests::PrivateDevice {
 protected:
  static void putConfiguration(const std::string& elements) {
    tests::putFile("/etc/orv.d/ZENTORAGENT3000/config.xml", "<Configuration>" + elements + "</Configuration>");
  }
};

TEST_F(AgentDirectories, AreTheUsualOnesWithoutAConfiguration) {
  EXPECT_EQ(agentBinDirectory(), "/opt/Quorvane/orv/bin");
  EXPECT_EQ(agentDataDirectory(), "/opt/Quorvane/orv/scratch");
  EXPECT_EQ(inAgentDataDirectory("name"), "/opt/Quorvane/orv/scratch/name");
}

TEST_F(AgentDirectories, AreThoseOfTheConfigurationAsItIsNow) {
  putConfiguration("<AgentBinDirectory>/bin/\xC3\xA9</AgentBinDirectory>");
  EXPECT_EQ(agentBinDirectory(), "/bin/\xC3\xA9");
  putConfiguration("<FrameworkDataDirectory>/data/</FrameworkDataDirectory>");
  EXPECT_EQ(agentBinDirectory(), "/opt/Quorvane/orv/bin");
  EXPECT_EQ(agentDataDirectory(), "/data/");
  EXPECT_EQ(inAgentDataDirectory("name"), "/data/name") << "one slash, wherever it comes from";
}

}  // namespace
}  // namespace kelt::helper
