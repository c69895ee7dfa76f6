#include "check/run.h"

#include <unistd.h>

#include "collected.h"

#include "base/signals.h"

namespace {

class Run : public kelt::tests::CheckedDevice {
 protected:
  void SetUp() override {
    CheckedDevice::SetUp();
    kelt::base::ignoreOutputSignals();
  }

  /// What a run prints, and its status after that.
  static std::string printed(std::vector<std::string> words) {
    words.insert(words.begin(), "keltcheck");
    std::vector<char*> arguments;
    for (std::string& word : words)
      arguments.push_back(word.data());
    arguments.push_back(nullptr);
    int status = -1;
    const auto output = kelt::tests::outputOf(
        [&] { status = kelt::check::runCheck(static_cast<int>(words.size()), arguments.data(), true); });
    EXPECT_EQ(output.err, "");
    return output.out + "status " + std::to_string(status);
  }
};

TEST_F(Run, ReportsInTheFormatThatIsAskedFor) {
  EXPECT_EQ(printed({"--plain"}), "KELTCHECK OK - unmanaged\nstatus 0");
  EXPECT_EQ(printed({}), "KELTCHECK OK - unmanaged\nstatus 0");
  EXPECT_EQ(printed({"--json"}).find("{\n  \"schema\": 1,\n  \"verdict\": \"ok\","), 0U);
}

TEST_F(Run, StaysInItsWorkingDirectory) {
  ASSERT_EQ(::chdir("/tmp"), 0);
  printed({"--plain"});
  char path[64];
  ASSERT_NE(::getcwd(&path[0], sizeof path), nullptr);
  EXPECT_STREQ(&path[0], "/tmp");
}

TEST_F(Run, RehearsesASwitch) {
  EXPECT_NE(printed({"--plain", "--source", "/nowhere"}).find("problem source.directory: None of the places"),
            std::string::npos);
}

TEST_F(Run, IsUnknownWithAWrongCommandLine) {
  EXPECT_EQ(printed({"--bad"}),
            "KELTCHECK UNKNOWN - wrong use: there is no option --bad; keltcheck --help shows the right one\nstatus 3");
}

TEST_F(Run, ShowsHelpAndVersion) {
  EXPECT_EQ(printed({"--version"}), "4.6.0.2545\nstatus 0");
  EXPECT_EQ(printed({"--help"}).find("usage: keltcheck"), 0U);
}

}  // namespace
