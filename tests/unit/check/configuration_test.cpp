#include <sys/stat.h>
#include <unistd.h>

#include "collected.h"

using kelt::tests::Collected;
using kelt::tests::contentOf;
using kelt::tests::kAgentConfig;
using kelt::tests::kAgentName;
using kelt::tests::putDirectory;
using kelt::tests::putFile;
using kelt::tests::putProduct;
using kelt::tests::Trouble;

namespace {

class Configuration : public kelt::tests::CheckedDevice {
 protected:
  Collected look() {
    Collected findings;
    m_device = {};
    checkConfiguration(m_device, findings);
    return findings;
  }

  kelt::check::Device m_device;
};

TEST_F(Configuration, IsInOrder) {
  putProduct("SCANNER2000", {{"Version", "1"}});
  const Collected findings = look();
  EXPECT_EQ(findings.trouble(), Trouble{});
  EXPECT_EQ(findings.states("config.product"), "ok");
  EXPECT_EQ(m_device.agentName, kAgentName);
  EXPECT_EQ(m_device.agentConfigPath, kAgentConfig);
  EXPECT_EQ(m_device.binDirectory, "/opt/Quorvane/orv/bin");
  EXPECT_EQ(m_device.dataDirectory, "/opt/Quorvane/orv/scratch");
  EXPECT_EQ(m_device.keyStore, "/opt/Quorvane/orv/scratch/keystore");
  EXPECT_TRUE(m_device.agentConfig.has_value());
  ASSERT_EQ(m_device.products.size(), 1U);
  EXPECT_EQ(m_device.products[0].name, "SCANNER2000");
  EXPECT_EQ(findings.report.facts.at("agent_version").front(), "5.7.8");
}

TEST_F(Configuration, NamesTheDirectoriesOfTheAgent) {
  putProduct(kAgentName, {{"AgentBinDirectory", "/tmp/bin"}, {"FrameworkDataDirectory", "/tmp/data/"}});
  look();
  EXPECT_EQ(m_device.binDirectory, "/tmp/bin");
  EXPECT_EQ(m_device.keyStore, "/tmp/data/keystore");
}

TEST_F(Configuration, WithoutTheAgentIsAProblem) {
  kelt::tests::resetDevice();
  EXPECT_EQ(look().trouble(), Trouble{"config.agent problem"});
}

TEST_F(Configuration, OpenToOthersIsAProblemAndIsNotReadAnyFurther) {
  ASSERT_EQ(::chmod("/etc/orv.d", 0757), 0);
  const Collected findings = look();
  EXPECT_EQ(findings.trouble(), Trouble{"config.directory problem"});
  EXPECT_EQ(findings.fact("config.directory"), "/etc/orv.d: can be written by others.");
  EXPECT_FALSE(m_device.agentConfig.has_value());
}

TEST_F(Configuration, TellsLineAndColumnOfWhatIsNotWellFormed) {
  putFile(kAgentConfig, "<Configuration>\n  <a></b>\n</Configuration>");
  const Collected findings = look();
  EXPECT_EQ(findings.states("config.file"), "problem");
  EXPECT_EQ(findings.fact("config.file"), kAgentConfig + ": XML document with mismatched tag in line 2, column 8.");
}

TEST_F(Configuration, OfAProductThatIsRefusedIsAWarning) {
  putFile(putProduct("SCANNER2000", {}), "nothing");
  putDirectory("/etc/orv.d/EMPTY");
  const Collected findings = look();
  EXPECT_EQ(findings.trouble(), (Trouble{"config.product warning", "config.product warning"}));
  EXPECT_EQ(m_device.products.size(), 0U);
}

TEST_F(Configuration, OfAnotherAgentIsIgnored) {
  putProduct("AZENTORAGENT", {});
  const Collected findings = look();
  EXPECT_EQ(findings.states("config.other-agent"), "warning");
  EXPECT_EQ(m_device.agentName, kelt::tests::namesAsListed("/etc/orv.d").front());
}

TEST_F(Configuration, NeedsAPlaceForTheHash) {
  putProduct(kAgentName, {{"Version", "5"}});
  EXPECT_EQ(look().trouble(), Trouble{"config.binsphash warning"});
}

TEST_F(Configuration, NeedsExactlyOnePlaceForTheHash) {
  putFile(kAgentConfig, "<Configuration><!--<binsphash></binsphash>--><binsphash></binsphash></Configuration>");
  EXPECT_EQ(look().trouble(), Trouble{"config.binsphash warning"});
}

TEST_F(Configuration, ThatTheHashWouldSpoilIsAProblem) {
  putFile(kAgentConfig, "<Configuration><a><!-- </binsphash> --></a><binsphash></binsphash></Configuration>");
  const Collected findings = look();
  EXPECT_EQ(findings.trouble(), Trouble{"config.binsphash problem"});
  EXPECT_NE(findings.fact("config.binsphash").find("the file would not load any more"), std::string::npos);
}

TEST_F(Configuration, IsEditedUpToASize) {
  const std::string content = contentOf(kAgentConfig);
  putFile(kAgentConfig, content + std::string(4095 - content.size(), ' '));
  EXPECT_EQ(look().trouble(), Trouble{});
  putFile(kAgentConfig, content + std::string(4096 - content.size(), ' '));
  EXPECT_EQ(look().trouble(), Trouble{"config.binsphash warning"});
}

}  // namespace
