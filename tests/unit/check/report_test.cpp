#include <gtest/gtest.h>

#include "check/report_json.h"
#include "check/report_text.h"

using namespace kelt::check;  // NOLINT(google-build-using-namespace)

namespace {

Report example() {
  return {{{"config.file", {}, State::kOk, "Fine.", {}},
           {"config.product", "X", State::kWarning, "Odd.", "Mend it."},
           {"key.server", {}, State::kProblem, "A|B.", "Get it."}},
          {{"mode", {"managed"}}, {"servers", {"a|b"}}}};
}

TEST(PlainReport, HasALineForTheVerdictAndOneForEachFinding) {
  EXPECT_EQ(plainReport(example(), false),
            "KELTCHECK PROBLEM - managed by a/b; 1 problem, 1 warning: A/B.\n"
            "warning config.product (X): Odd. Remedy: Mend it.\n"
            "problem key.server: A|B. Remedy: Get it.\n");
}

TEST(PlainReport, TellsWhatIsWellWhenAsked) {
  EXPECT_NE(plainReport(example(), true).find("\nok config.file: Fine.\n"), std::string::npos);
}

TEST(TerminalReport, IsGroupedAndHasSymbols) {
  EXPECT_EQ(terminalReport(example(), true, false),
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
  EXPECT_EQ(terminalReport(example(), true, false).find('\x1B'), std::string::npos);
  EXPECT_NE(terminalReport(example(), false, true).find("\x1B[33m[! ]\x1B[0m config.product"), std::string::npos);
  Report unknown{{{"other.thing", {}, State::kUnknown, "Dark.", "Look."}}, {}};
  EXPECT_EQ(terminalReport(unknown, false, true),
            "\x1B[36mKELTCHECK UNKNOWN - mode unknown; 1 unknown: Dark.\x1B[0m\n\nother\n"
            "  \x1B[36m[? ]\x1B[0m other.thing: Dark.\n       -> Look.\n");
}

TEST(UnknownLine, IsTheFirstLineOfAReport) {
  EXPECT_EQ(unknownLine("no|thing"), "KELTCHECK UNKNOWN - no/thing\n");
}

TEST(JsonReport, IsOneObject) {
  Report report = example();
  report.facts["server_key_bits"] = {"2048"};
  report.facts["openssl"] = {"3"};
  report.facts["not-in-the-schema"] = {"x"};
  EXPECT_EQ(jsonReport(report), R"({
  "schema": 1,
  "verdict": "problem",
  "summary": "managed by a|b, key 2048 bits; 1 problem, 1 warning: A|B.",
  "facts": {
    "mode": "managed",
    "servers": [
      "a|b"
    ],
    "server_key_bits": 2048,
    "versions": {
      "openssl": "3"
    }
  },
  "checks": [
    {
      "id": "config.file",
      "group": "config",
      "state": "ok",
      "fact": "Fine."
    },
    {
      "id": "config.product",
      "group": "config",
      "subject": "X",
      "state": "warning",
      "fact": "Odd.",
      "remedy": "Mend it."
    },
    {
      "id": "key.server",
      "group": "key",
      "state": "problem",
      "fact": "A|B.",
      "remedy": "Get it."
    }
  ]
}
)");
}

TEST(JsonReport, IsTextWhateverTheDeviceIsLike) {
  const std::string json = jsonReport({{{"a.b", "\xFF\"\\", State::kOk, "x\x1By.", {}}}, {}});
  EXPECT_NE(json.find(R"("subject": "\\xFF\"\\")"), std::string::npos) << json;
  EXPECT_NE(json.find(R"("fact": "x\\x1By.")"), std::string::npos) << json;
}

}  // namespace
