#include "check/report_json.h"

#include <gtest/gtest.h>

#include "example_report.h"

using kelt::tests::exampleReport;
using namespace kelt::check;  // NOLINT(google-build-using-namespace)

namespace {

TEST(JsonReport, IsOneObject) {
  Report report = exampleReport();
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
