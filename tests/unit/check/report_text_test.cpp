#include "check/report_text.h"

#include <gtest/gtest.h>

#include "example_report.h"

using kelt::tests::exampleReport;
using namespace kelt::check;  // NOLINT(google-build-using-namespace)

namespace {

TEST(PlainReport, HasALineForTheVerdictAndOneForEachFinding) {
  EXPECT_EQ(plainReport(exampleReport(), false),
            "KELTCHECK PROBLEM - managed by a/b; 1 problem, 1 warning: A/B.\n"
            "warning config.product (X): Odd. Remedy: Mend it.\n"
            "problem key.server: A|B. Remedy: Get it.\n");
}

TEST(PlainReport, TellsWhatIsWellWhenAsked) {
  EXPECT_NE(plainReport(exampleReport(), true).find("\nok config.file: Fine.\n"), std::string::npos);
}

TEST(TerminalReport, IsGroupedAndHasSymbols) {
  EXPECT_EQ(terminalReport(exampleReport(), true, false),
            "KELTCHECK PROBLEM - managed by a/b; 1 problem, 1 warning: A/B.\n"
            "\nConfiguration\n"
            "  [ok] config.file: Fine.\n"
            "  [! ] config.product (X): Odd.\n"
            "       -> Mend it.\n"
            "\nKeys\n"
            "  [XX] key.server: A|B.\n"
            "       -> Get it.\n");
}

TEST(TerminalReport, HasColoursOnlyWhereTheyAreWanted) {
  EXPECT_EQ(terminalReport(exampleReport(), true, false).find('\x1B'), std::string::npos);
  EXPECT_NE(terminalReport(exampleReport(), false, true).find("\x1B[33m[! ]\x1B[0m config.product"), std::string::npos);
  Report unknown{{{"other.thing", {}, State::kUnknown, "Dark.", "Look."}}, {}};
  EXPECT_EQ(terminalReport(unknown, false, true),
            "\x1B[36mKELTCHECK UNKNOWN - mode unknown; 1 unknown: Dark.\x1B[0m\n\nother\n"
            "  \x1B[36m[? ]\x1B[0m other.thing: Dark.\n       -> Look.\n");
}

TEST(UnknownLine, IsTheFirstLineOfAReport) {
  EXPECT_EQ(unknownLine("no|thing"), "KELTCHECK UNKNOWN - no/thing\n");
}

}  // namespace
