#include "collected.h"

using kelt::tests::Collected;
using kelt::tests::kAgentName;
using kelt::tests::putProduct;
using kelt::tests::Trouble;

namespace {

class Commands : public kelt::tests::CheckedDevice {
 protected:
  Collected look() {
    Collected findings;
    checkCommands(device(), findings);
    return findings;
  }
};

TEST_F(Commands, AreShownAsTheyAreSplit) {
  putProduct(kAgentName, {{"StartCommand", m_program + "  \"a b\"\tc"}, {"StopCommand", m_program}});
  const Collected findings = look();
  EXPECT_EQ(findings.trouble(), Trouble{});
  EXPECT_EQ(findings.fact("command.start"),
            "StartCommand runs " + m_program + ", started with the words [" + m_program + "] [\"a b\"] [c].");
  EXPECT_EQ(kelt::tests::calls(), std::vector<std::string>{}) << "nothing is run";
}

TEST_F(Commands, OfTheAgentAreNeeded) {
  putProduct(kAgentName, {{"StopCommand", "  "}});
  const Collected findings = look();
  EXPECT_EQ(findings.trouble(), (Trouble{"command.start problem", "command.stop problem"}));
  EXPECT_EQ(findings.fact("command.start"),
            "StartCommand: there is no command, so that the agent would not be started.");
}

TEST_F(Commands, InQuotesHaveARemedyOfTheirOwn) {
  putProduct(kAgentName, {{"StartCommand", "\"" + m_program + "\" start"}, {"StopCommand", m_program}});
  const Collected findings = look();
  EXPECT_EQ(findings.trouble(), Trouble{"command.start problem"});
  EXPECT_NE(findings.report.checks[0].remedy.find("without quotes"), std::string::npos);
}

TEST_F(Commands, OfAProductNeedNotBeThereAndAreAWarningWhenBroken) {
  putProduct("PLAIN", {{"Version", "1"}});
  putProduct("SCANNER2000", {{"LoadOrvPluginCommand", m_program + " load"}, {"UnloadOrvPluginCommand", "/nowhere"}});
  const Collected findings = look();
  EXPECT_EQ(findings.trouble(), Trouble{"command.unload warning"});
  EXPECT_EQ(findings.states("command.load"), "ok");
  EXPECT_EQ(findings.report.checks.back().subject, "SCANNER2000");
}

}  // namespace
