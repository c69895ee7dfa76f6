#include "check/findings.h"

#include <cerrno>

#include "collected.h"

using kelt::base::ErrorKind;
using kelt::check::State;
using kelt::tests::Collected;

namespace {

TEST(Findings, AreSentencesAndHaveARemedyUnlessTheyAreOk) {
  Collected findings;
  findings.put(State::kOk, "a.b", "Fine", "unused");
  findings.problem("a.c", "Broken\nin two\n", "Mend it", "this one");
  ASSERT_EQ(findings.report.checks.size(), 2U);
  EXPECT_EQ(findings.report.checks[0].fact, "Fine.");
  EXPECT_EQ(findings.report.checks[0].remedy, "");
  EXPECT_EQ(findings.report.checks[1].fact, "Broken in two.");
  EXPECT_EQ(findings.report.checks[1].remedy, "Mend it.");
  EXPECT_EQ(findings.report.checks[1].subject, "this one");
}

TEST(Findings, OfAFailureAreWhatTheCallerSaysWhereTheThingIsAtFault) {
  Collected findings;
  findings.failure(State::kWarning, "a.b", {ErrorKind::kNotFound, ENOENT, "gone"}, "Look for it");
  EXPECT_EQ(findings.states("a.b"), "warning");
  EXPECT_EQ(findings.report.checks[0].remedy, "Look for it.");
}

TEST(Findings, OfAFailureAreUnknownWhereTheSystemHadNoMeans) {
  for (const int error : {ENOMEM, EMFILE, ENFILE}) {
    Collected findings;
    findings.failure(State::kProblem, "a.b", {ErrorKind::kSystem, error, "no"}, "Mend it");
    EXPECT_EQ(findings.states("a.b"), "unknown") << error;
    EXPECT_EQ(findings.report.checks[0].remedy, "Free memory and descriptors, and run it again.");
  }
}

TEST(NotSeen, IsWhatIsRefusedToAnotherUserButNotToRoot) {
  // The tests run as root of their device.
  EXPECT_FALSE(kelt::check::bNotSeen(EACCES));
  EXPECT_FALSE(kelt::check::bNotSeen(ENOENT));
  EXPECT_TRUE(kelt::check::bNotSeen(ENOMEM));
}

TEST(Shortened, EndsWithAWholeCharacter) {
  using kelt::check::shortened;
  EXPECT_EQ(shortened("abc", 3), "abc");
  EXPECT_EQ(shortened("abcd", 3), "abc ...");
  EXPECT_EQ(shortened("ab\xE4\xB8\xAD", 4), "ab ...");
  EXPECT_EQ(shortened("\x80\x80", 1), " ...");
}

TEST(Sentence, EndsOnceAndIsCutWhereItHasNoEnd) {
  EXPECT_EQ(kelt::check::sentence("Done."), "Done.");
  EXPECT_EQ(kelt::check::sentence("Done!"), "Done!");
  EXPECT_EQ(kelt::check::sentence(""), "");
  EXPECT_EQ(kelt::check::sentence(std::string(5000, 'x')), std::string(2000, 'x') + " ...");
}

}  // namespace
