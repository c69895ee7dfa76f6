#include "check/verdict.h"

#include <gtest/gtest.h>

using namespace kelt::check;  // NOLINT(google-build-using-namespace)

namespace {

Report reportOf(const std::vector<State>& states) {
  Report report;
  for (const State state : states)
    report.checks.push_back({"a.b", {}, state, std::string("Fact of ") + nameOf(state) + ".", "Do it."});
  return report;
}

TEST(Verdict, IsTheWorstStateOfAll) {
  EXPECT_EQ(verdictOf(reportOf({State::kOk, State::kOk})), State::kOk);
  EXPECT_EQ(verdictOf(reportOf({State::kOk, State::kUnknown})), State::kUnknown);
  EXPECT_EQ(verdictOf(reportOf({State::kUnknown, State::kWarning, State::kOk})), State::kWarning);
  EXPECT_EQ(verdictOf(reportOf({State::kWarning, State::kProblem, State::kUnknown})), State::kProblem);
  EXPECT_EQ(verdictOf({}), State::kUnknown);
}

TEST(Verdict, HasTheExitStatusOfMonitoringPlugIns) {
  EXPECT_EQ(exitStatusOf(State::kOk), 0);
  EXPECT_EQ(exitStatusOf(State::kWarning), 1);
  EXPECT_EQ(exitStatusOf(State::kProblem), 2);
  EXPECT_EQ(exitStatusOf(State::kUnknown), 3);
}

TEST(Summary, TellsWhoManagesTheAgentAndTheSizeOfTheKey) {
  Report report = reportOf({State::kOk});
  EXPECT_EQ(summaryOf(report), "mode unknown");
  report.facts = {{"mode", {"unmanaged"}}};
  EXPECT_EQ(summaryOf(report), "unmanaged");
  report.facts = {{"mode", {"managed"}}, {"servers", {"192.0.2.10", "b"}}, {"server_key_bits", {"2048"}}};
  EXPECT_EQ(summaryOf(report), "managed by 192.0.2.10, b, key 2048 bits");
}

TEST(Summary, NamesAFewOfManyServers) {
  Report report = reportOf({State::kOk});
  report.facts = {{"mode", {"managed"}}, {"servers", {"a", "b", "c", "d", "e", "f"}}};
  EXPECT_EQ(summaryOf(report), "managed by a, b, c, d and 2 more");
}

TEST(Summary, IsShortWhateverIsNamed) {
  Report report = reportOf({State::kProblem});
  report.checks.front().fact = std::string(2000, 'x');
  report.facts = {{"mode", {"managed"}}, {"servers", std::vector<std::string>(1000, std::string(65536, 'y'))}};
  EXPECT_LT(summaryOf(report).size(), 1200U);
  EXPECT_TRUE(summaryOf(report).ends_with("xxx ..."));
}

TEST(Summary, CountsTheTroubleAndTellsTheFirstOfTheWorst) {
  EXPECT_EQ(summaryOf(reportOf({State::kUnknown, State::kWarning, State::kProblem, State::kWarning})),
            "mode unknown; 1 problem, 2 warnings, 1 unknown: Fact of problem.");
}

}  // namespace
