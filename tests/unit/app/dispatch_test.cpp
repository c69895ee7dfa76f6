#include "app/dispatch.h"

#include "support/private_device.h"
#include "unit/app/arguments.h"
#include "unit/app/recording_agent.h"

#include "app/parser.h"

namespace kelt::app {
namespace {

using Calls = std::vector<std::string>;

constexpr const char* kSourceDirMissing =
    "Error : -d option is missing for following files\n"
    "      1. sitelist &\n"
    "      2. keyfiles (for Zentor4.0 or higher)\n";

class DispatchTest : public tests::PrivateDevice {
 protected:
  /// Does what the command line asks for and returns the status; what was printed is in m_out.
  int run(std::initializer_list<const char*> texts) {
    CommandLineData data;
    tests::Arguments arguments(texts);
    EXPECT_TRUE(ParseCommandLineArg(arguments.get(), data));
    int status = -1;
    const tests::Output output = tests::outputOf([&] { status = runOptions(data, L"/started/here", m_agent); });
    EXPECT_EQ(output.err, "");
    m_out = output.out;
    return status;
  }

  tests::RecordingAgent m_agent;
  std::string m_out;
};

TEST_F(DispatchTest, WithoutAnythingToDoNothingIsDone) {
  EXPECT_EQ(run({"-nostart", "-z", "-p", "-f"}), 0);
  EXPECT_EQ(m_agent.calls, Calls{});
  EXPECT_EQ(m_out, "");
}

TEST_F(DispatchTest, AnImproperVersionEndsTheRunWithTwo) {
  m_agent.bVersionFits = false;
  EXPECT_EQ(run({"-checkHF", "X", "-conflictList", "A", "-version", "-m", "-d", "/tmp", "-start"}), 2);
  EXPECT_EQ(m_agent.calls, Calls{"version"}) << "nothing else runs";
  EXPECT_EQ(m_agent.checkedVersion, L"X");
  EXPECT_EQ(m_out, "");
}

TEST_F(DispatchTest, AConflictEndsTheRunWithThree) {
  m_agent.bConflictFree = false;
  EXPECT_EQ(run({"-conflictList", "A,B", "-checkHF", "X", "-u"}), 3);
  EXPECT_EQ(m_agent.calls, (Calls{"version", "conflicts"})) << "in this order, whatever the order of the options";
  EXPECT_EQ(m_agent.checkedConflicts, L"A,B");
  EXPECT_EQ(m_out, "\n there is a conflict \n");
}

TEST_F(DispatchTest, ThePassedChecksLetTheRunGoOn) {
  EXPECT_EQ(run({"-checkHF", "X", "-conflictList", "A", "-m", "-d", "/tmp"}), 0);
  EXPECT_EQ(m_agent.calls, (Calls{"version", "conflicts", "managed"}));
  EXPECT_EQ(m_out, "");
}

TEST_F(DispatchTest, TheConflictsAreCheckedWithoutAVersionCheckToo) {
  EXPECT_EQ(run({"-conflictList", "A"}), 0);
  EXPECT_EQ(m_agent.calls, Calls{"conflicts"});
}

TEST_F(DispatchTest, TheVersionIsPrintedInsteadOfASwitch) {
  EXPECT_EQ(run({"-version", "-m", "-d", "/tmp", "-u", "-start", "-CustomProps1", "A"}), 0);
  EXPECT_EQ(m_out, "4.6.0.2545\n");
  EXPECT_EQ(m_agent.calls, Calls{});
}

TEST_F(DispatchTest, TheVersionComesAfterTheChecks) {
  EXPECT_EQ(run({"-version", "-checkHF", "X"}), 0);
  EXPECT_EQ(m_agent.calls, Calls{"version"});
  EXPECT_EQ(m_out, "4.6.0.2545\n");
}

TEST_F(DispatchTest, AManagedSwitchGetsEverythingThatWasTyped) {
  EXPECT_EQ(run({"-m", "-d", "/tmp", "-z", "-e", "host:1", "-U", "admin", "-P", "secret", "-l", "log", "-p", "-f",
                 "-nostart"}),
            0);
  EXPECT_EQ(m_agent.lastSwitch, (tests::RecordingAgent::Switch{true, true, L"/tmp", L"/started/here", true, L"log",
                                                               true, true, L"host:1", L"admin", L"secret"}));
}

TEST_F(DispatchTest, AManagedSwitchWithoutExtrasGetsOnlyTheDirectories) {
  EXPECT_EQ(run({"-m", "-d", "/tmp"}), 0);
  EXPECT_EQ(m_agent.lastSwitch, (tests::RecordingAgent::Switch{true, false, L"/tmp", L"/started/here", false, L"",
                                                               false, false, L"", L"", L""}));
}

TEST_F(DispatchTest, TheStatusOfASwitchIsTheStatusOfTheRun) {
  for (const int status : {0, 1, 4, 5, 30, 37}) {
    m_agent.switchStatus = status;
    EXPECT_EQ(run({"-m", "-d", "/tmp", "-start", "-CustomProps1", "A"}), status);
    EXPECT_EQ(run({"-u"}), status);
  }
  for (const std::string& call : m_agent.calls)
    EXPECT_TRUE(call == "managed" || call == "unmanaged") << call;
}

TEST_F(DispatchTest, ManagedModeAloneIsAnErrorThatEndsWithZero) {
  EXPECT_EQ(run({"-m"}), 0);
  EXPECT_EQ(m_out, kSourceDirMissing);
  EXPECT_EQ(m_agent.calls, Calls{});
}

TEST_F(DispatchTest, ManagedModeWithoutADirectoryFallsThroughToWhatFollows) {
  m_agent.switchStatus = 7;
  EXPECT_EQ(run({"-m", "-u", "-start"}), 7);
  EXPECT_EQ(m_out, kSourceDirMissing);
  EXPECT_EQ(m_agent.calls, Calls{"unmanaged"});

  m_agent.bStarts = false;
  EXPECT_EQ(run({"-m", "-start"}), 4);
  EXPECT_EQ(m_agent.calls, (Calls{"unmanaged", "start"}));
}

TEST_F(DispatchTest, OfBothSwitchesOnlyTheManagedOneRuns) {
  EXPECT_EQ(run({"-u", "-m", "-d", "/tmp"}), 0);
  EXPECT_EQ(m_agent.calls, Calls{"managed"});
}

TEST_F(DispatchTest, AnUnmanagedSwitchGetsNothingButWhetherToStart) {
  EXPECT_EQ(run({"-u", "-nostart", "-d", "/tmp", "-z", "-e", "host", "-U", "admin", "-P", "secret", "-l", "log", "-p",
                 "-f", "-start"}),
            0);
  EXPECT_EQ(m_agent.calls, Calls{"unmanaged"}) << "-start is ignored";
  EXPECT_EQ(m_agent.lastSwitch,
            (tests::RecordingAgent::Switch{false, true, L"", L"", false, L"", false, false, L"", L"", L""}));
  EXPECT_EQ(run({"-u"}), 0);
  EXPECT_FALSE(m_agent.lastSwitch.noStart);
}

TEST_F(DispatchTest, StartAndStopAreBothDoneStartFirst) {
  EXPECT_EQ(run({"-stop", "-start"}), 0);
  EXPECT_EQ(m_agent.calls, (Calls{"start", "stop"}));
}

TEST_F(DispatchTest, AFailedStartEndsTheRunWithFour) {
  m_agent.bStarts = false;
  EXPECT_EQ(run({"-start", "-stop", "-k", "-CustomProps1", "A"}), 4);
  EXPECT_EQ(m_agent.calls, Calls{"start"});
  EXPECT_EQ(m_out, "");
}

TEST_F(DispatchTest, AFailedStopEndsTheRunWithFive) {
  m_agent.bStops = false;
  EXPECT_EQ(run({"-stop", "-k", "-CustomProps1", "A"}), 5);
  EXPECT_EQ(m_agent.calls, Calls{"stop"});
  EXPECT_EQ(m_out, "");
}

TEST_F(DispatchTest, AKeyImportStandsBetweenAStopAndAStart) {
  EXPECT_EQ(run({"-k"}), 0);
  EXPECT_EQ(m_agent.calls, (Calls{"stop", "import update", "start"}));
}

TEST_F(DispatchTest, AKeyImportCanLeaveTheServiceStopped) {
  EXPECT_EQ(run({"-k", "-nostart"}), 0);
  EXPECT_EQ(m_agent.calls, (Calls{"stop", "import update"}));
}

TEST_F(DispatchTest, AServiceThatDoesNotStopKeepsItsKeys) {
  m_agent.bStops = false;
  EXPECT_EQ(run({"-k"}), 5);
  EXPECT_EQ(m_agent.calls, Calls{"stop"});
}

TEST_F(DispatchTest, AFailedKeyImportStartsTheServiceAgainAndEndsWithSixteen) {
  m_agent.bImports = false;
  EXPECT_EQ(run({"-k"}), 16);
  EXPECT_EQ(m_agent.calls, (Calls{"stop", "import update", "start"}));
  m_agent.bStarts = false;
  EXPECT_EQ(run({"-k", "-nostart"}), 16) << "whatever the start says, and although -nostart was given";
  EXPECT_EQ(m_agent.calls, (Calls{"stop", "import update", "start", "stop", "import update", "start"}));
}

TEST_F(DispatchTest, AServiceThatDoesNotStartAfterAKeyImportEndsTheRunWithFour) {
  m_agent.bStarts = false;
  EXPECT_EQ(run({"-k", "-CustomProps1", "A"}), 4);
  EXPECT_FALSE(tests::exists("/opt/Quorvane/orv/scratch/CustomProps.xml"));
}

TEST_F(DispatchTest, CustomPropertiesComeLast) {
  tests::putFile("/opt/Quorvane/orv/scratch/CustomProps.xml", "<CustomProperties><CustomProps1 value=\"A\"/>");
  EXPECT_EQ(run({"-CustomProps3", "X", "-k", "-stop", "-start"}), 0);
  EXPECT_EQ(m_agent.calls, (Calls{"start", "stop", "stop", "import update", "start"}));
  const std::string written = tests::contentOf("/opt/Quorvane/orv/scratch/CustomProps.xml");
  EXPECT_NE(written.find("<CustomProps3 value=\"X\"/>"), std::string::npos) << written;
  EXPECT_EQ(written.find("CustomProps1"), std::string::npos) << written;
  EXPECT_EQ(m_out, "");
}

TEST_F(DispatchTest, WithoutCustomPropertiesTheirFileIsLeftAlone) {
  tests::putFile("/opt/Quorvane/orv/scratch/CustomProps.xml", "old");
  EXPECT_EQ(run({"-start"}), 0);
  EXPECT_EQ(run({"-u"}), 0);
  EXPECT_EQ(tests::contentOf("/opt/Quorvane/orv/scratch/CustomProps.xml"), "old");
}

}  // namespace
}  // namespace kelt::app
