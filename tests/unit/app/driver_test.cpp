#include "app/driver.h"

#include <cstdlib>
#include <sys/stat.h>
#include <unistd.h>

#include "support/child.h"
#include "support/failing_memory.h"
#include "support/private_device.h"
#include "unit/app/arguments.h"

#include "platform/crypto.h"

namespace kelt::app {
namespace {

constexpr const char* kModeUnknown = "Unable to find existing mode, assuming non_fips mode\n";
constexpr const char* kLog = "/opt/Quorvane/orv/scratch/logs/keltcfg.log";
constexpr const char* kLockFile = "/run/orv-locks/71D551C0-D2DA-42F0-BB87-E4CE5347DD14-sync_mutex";
constexpr const char* kCustomProps = "/opt/Quorvane/orv/scratch/CustomProps.xml";

class DriverTest : public tests::PrivateDevice {
 protected:
  void SetUp() override {
    PrivateDevice::SetUp();
    tests::putDirectory("/opt/Quorvane/orv/bin");
    tests::putFile("/opt/Quorvane/orv/scratch/keystore/keyconf.ini", "mode=2\nkeysize=1\n", 0600);
  }

  /// Runs the tool in a process of its own, after `prepare`. Returns its status, -1 when it was killed.
  int run(
      std::initializer_list<const char*> options, const std::function<void()>& prepare = [] {}) {
    int status = -1;
    const tests::Output output = tests::outputOf([&] {
      status = tests::Child([&] {
                 prepare();
                 std::vector<std::string> texts{"keltconfig"};
                 for (const char* option : options)
                   texts.emplace_back(option);
                 std::vector<char*> arguments;
                 for (std::string& text : texts)
                   arguments.push_back(text.data());
                 arguments.push_back(nullptr);
                 return runTool(static_cast<int>(texts.size()), arguments.data());
               }).exitStatus();
    });
    m_out = output.out;
    m_err = output.err;
    return status;
  }

  static void enterDeletedDirectory() {
    EXPECT_EQ(::mkdir("/tmp/gone", 0755), 0);
    EXPECT_EQ(::chdir("/tmp/gone"), 0);
    EXPECT_EQ(::rmdir("/tmp/gone"), 0);
  }

  std::string m_out;
  std::string m_err;
};

TEST_F(DriverTest, PrintsTheVersionAndReleasesTheLock) {
  EXPECT_EQ(run({"-version"}), 0);
  EXPECT_EQ(m_out, "4.6.0.2545\n");
  EXPECT_EQ(m_err, "");
  EXPECT_FALSE(tests::exists(kLockFile));
  EXPECT_FALSE(tests::exists(kLog));
}

TEST_F(DriverTest, PrintsTheVersionInsteadOfSwitching) {
  EXPECT_EQ(run({"-version", "-m", "-d", "/tmp"}), 0);
  EXPECT_EQ(m_out, "4.6.0.2545\n");
  EXPECT_EQ(tests::namesIn("/opt/Quorvane/orv"), (std::vector<std::string>{"bin", "scratch"}));
}

TEST_F(DriverTest, ARefusedCommandLineEndsWithOne) {
  EXPECT_EQ(run({}), 1);
  EXPECT_EQ(m_out, "Invalid command line : No options specified. Use keltconfig -h or ? or --help for help \n");
  EXPECT_EQ(run({"-bogus"}), 1);
  EXPECT_EQ(run({"-h"}), 1);
  EXPECT_TRUE(m_out.starts_with("keltconfig    [-m -d path")) << m_out;
}

TEST_F(DriverTest, ACommandLineWithoutEvenANameIsAnEmptyOne) {
  int status = -1;
  const tests::Output output = tests::outputOf([&] {
    status = tests::Child([] {
               char* arguments[] = {nullptr};
               return runTool(0, arguments);
             }).exitStatus();
  });
  EXPECT_EQ(status, 1);
  EXPECT_TRUE(output.out.starts_with("Invalid command line : ")) << output.out;
}

TEST_F(DriverTest, ARefusedCommandLineDoesNothingOfWhatItAskedFor) {
  EXPECT_EQ(run({"-CustomProps1", "A", "-bogus"}), 1);
  EXPECT_FALSE(tests::exists(kCustomProps));
}

TEST_F(DriverTest, AnEmptyCustomPropertyIsRefused) {
  EXPECT_EQ(run({"-CustomProps3", ""}), 1);
  EXPECT_EQ(m_out, "Missing option argument.\n");
  EXPECT_FALSE(tests::exists(kCustomProps));
}

TEST_F(DriverTest, WritesOnlyTheCustomPropertyGiven) {
  tests::putFile(kCustomProps, R"(<CustomProperties><CustomProps1 value="old"/></CustomProperties>)");
  EXPECT_EQ(run({"-CustomProps3", "X"}), 0);
  EXPECT_EQ(m_out, "");
  const std::string written = tests::contentOf(kCustomProps);
  EXPECT_NE(written.find("<CustomProps3 value=\"X\"/>"), std::string::npos) << written;
  EXPECT_EQ(written.find("CustomProps1"), std::string::npos) << written;
}

TEST_F(DriverTest, ManagedModeAloneIsAnErrorThatEndsWithZero) {
  EXPECT_EQ(run({"-m"}), 0);
  EXPECT_EQ(m_out,
            "Error : -d option is missing for following files\n"
            "      1. sitelist &\n"
            "      2. keyfiles (for Zentor4.0 or higher)\n");
}

TEST_F(DriverTest, WithoutAnAgentItsServiceDoesNotStartOrStop) {
  EXPECT_EQ(run({"-start"}), 4);
  EXPECT_EQ(run({"-stop"}), 5);
  EXPECT_EQ(run({"-k"}), 5);
  EXPECT_EQ(run({"-checkHF", "X"}), 2);
  EXPECT_EQ(m_out, "");
}

TEST_F(DriverTest, WithoutAWorkingDirectoryItEndsWithEight) {
  EXPECT_EQ(run({"-version"},
                [] {
                  enterDeletedDirectory();
                  ::unsetenv("PWD");
                }),
            8);
  EXPECT_EQ(m_out, "Error : Failed to acquire current directory.\n");
  EXPECT_FALSE(tests::exists(kLockFile));
}

TEST_F(DriverTest, InARemovedDirectoryTheShellsWordIsTaken) {
  EXPECT_EQ(run({"-version"},
                [] {
                  enterDeletedDirectory();
                  ::setenv("PWD", "", 1);
                }),
            0);
  EXPECT_EQ(m_out, "4.6.0.2545\n");
}

TEST_F(DriverTest, WithoutTheAgentsBinDirectoryItEndsWithEight) {
  ASSERT_EQ(::rmdir("/opt/Quorvane/orv/bin"), 0);
  EXPECT_EQ(run({"-bogus"}), 8);
  EXPECT_EQ(m_out, "Error : Failed to change current directory to /opt/Quorvane/orv/bin\n");
  EXPECT_FALSE(tests::exists(kLockFile));
}

TEST_F(DriverTest, AnUnknownCryptoModeIsReportedAndTheRunGoesOn) {
  ASSERT_EQ(::unlink("/opt/Quorvane/orv/scratch/keystore/keyconf.ini"), 0);
  EXPECT_EQ(run({"-version"}), 0);
  EXPECT_EQ(m_out, std::string(kModeUnknown) + "4.6.0.2545\n");
  EXPECT_NE(tests::contentOf(kLog).find("\tI\t"), std::string::npos);
  EXPECT_NE(tests::contentOf(kLog).find(std::string("\tkeltcfg\t") + kModeUnknown), std::string::npos);
}

TEST_F(DriverTest, AKnownCryptoModeIsNoNews) {
  tests::putFile("/opt/Quorvane/orv/scratch/keystore/keyconf.ini", "mode=0\nkeysize=1\n", 0600);
  EXPECT_EQ(run({"-version"}), 0);
  EXPECT_EQ(m_out, "4.6.0.2545\n");
}

TEST_F(DriverTest, WithoutTheLockItEndsWithSeventeen) {
  tests::putDirectory(kLockFile);
  EXPECT_EQ(run({"-version"}), 17);
  EXPECT_EQ(m_out, "");
  EXPECT_EQ(m_err, "");
  const std::string log = tests::contentOf(kLog);
  const std::size_t first = log.find("\tkeltcfg\tUnable to acquire lock\n");
  const std::size_t second = log.find("\tkeltcfg\tUnable to acquire interprocess lock for keltconfig \n");
  EXPECT_LT(first, second) << log;
  EXPECT_NE(second, std::string::npos) << log;
}

TEST_F(DriverTest, TakesTheLockBeforeAnythingElse) {
  tests::putDirectory(kLockFile);  // so that it is not to be had
  EXPECT_EQ(run({"-bogus"},
                [] {
                  enterDeletedDirectory();
                  ::unsetenv("PWD");
                }),
            17);
  EXPECT_EQ(m_out, "") << "no word on the working directory";
  ASSERT_EQ(::rmdir("/opt/Quorvane/orv/bin"), 0);
  ASSERT_EQ(::unlink("/opt/Quorvane/orv/scratch/keystore/keyconf.ini"), 0);
  EXPECT_EQ(run({}), 17);
  EXPECT_EQ(m_out, "") << "nor on the agent's directory, the crypto mode or the command line";
}

TEST_F(DriverTest, WithoutMemoryForAnArgumentItEndsWithOne) {
  const std::string value(5000, 'x');
  const std::size_t stored = (value.size() + 1) * sizeof(wchar_t);
  EXPECT_EQ(run({"-CustomProps1", value.c_str()}, [=] { tests::failAllocation(stored, 1); }), 1);
  EXPECT_EQ(m_out, "");
  EXPECT_EQ(m_err, "");
  EXPECT_FALSE(tests::exists(kCustomProps));
  EXPECT_FALSE(tests::exists(kLockFile));
}

TEST_F(DriverTest, WithoutMemoryForTheCryptoLoggerItEndsWithEighteen) {
  // Other objects of its size come first; where memory runs out for them, the exception goes through.
  int status = tests::kThrew;
  for (int which = 1; which <= 50 && status == tests::kThrew; ++which) {
    status = run({"-start", "-CustomProps1", "A"},
                 [which] { tests::failAllocation(sizeof(quorvane_com::QV::crypto::CryptShimLogger), which); });
    EXPECT_EQ(m_out, "");
    EXPECT_FALSE(tests::exists(kLockFile)) << "allocation " << which << " ended the run without releasing the lock";
  }
  EXPECT_EQ(status, 18);
  EXPECT_FALSE(tests::exists(kCustomProps));
}

TEST_F(DriverTest, ThePasswordLeavesTheProcesssArguments) {
  tests::Arguments arguments({"keltconfig", "-P", "secret", "-start"});
  tests::Child child([&] {
    const int status = runTool(arguments.count(), arguments.get());
    return status == 4 && arguments[2] == std::string(6, '\0') ? 0 : 1;
  });
  EXPECT_EQ(child.exitStatus(), 0);
}

}  // namespace
}  // namespace kelt::app
