// The gate finds what it is there to find: a small tool with one mistake after the other, and one without.

#include <algorithm>
#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <set>
#include <sstream>
#include <stdexcept>
#include <sys/syscall.h>
#include <sys/wait.h>

#include "fault/gate/exceptions.h"
#include "fault/gate/place.h"
#include "fault/gate/point.h"
#include "fault/gate/report.h"
#include "fault/gate/trials.h"

namespace kelt::tests::gate {
namespace {

namespace fs = std::filesystem;

const std::string kSecret(400, 's');

std::string inBuild(const char* name) {
  return fs::read_symlink("/proc/self/exe").parent_path() / name;
}

std::string document() {
  return readFile(inBuild("gate/console.md"));
}

std::string exceptionFile() {
  return readFile(inBuild("gate/exceptions.txt"));
}

Command plantedCommand(const std::string& mistake, Agent agent) {
  Command command;
  command.name = "planted";
  command.arguments = {mistake};
  command.agent = agent;
  command.source = "/tmp/source";
  put(command.first, "/opt/Quorvane/planted/data", "the old content");
  put(command.first, "/tmp/source/secret", kSecret, 0600);
  put(command.first, kAgentRuns, "");
  return command;
}

using Kinds = std::set<std::string>;

/// The planted tool with one mistake, ready to be tried.
class Planted {
 public:
  explicit Planted(const std::string& mistake, Agent agent = Agent::kUntouched,
                   const std::vector<std::string>& emulator = {})
      : m_suite(suiteOf(mistake, agent)), m_texts(document()), m_exceptions(exceptionFile()) {
    bringPrograms();
    Setting setting = settingFor(inBuild("kelt_gate_planted"), "test");
    setting.emulator = emulator;
    m_trials.emplace(m_suite, m_texts, setting);
    m_undisturbed = m_trials->undisturbed(m_suite.commands[0]);
  }

  [[nodiscard]] std::vector<Point> points(Mode mode) const { return pointsOf(0, m_undisturbed, mode); }

  /// Every kill after an error.
  std::vector<Point> killsAfter(const Point& error) {
    std::vector<Point> pairs;
    const std::size_t calls = m_trials->afterError(error).calls;
    for (std::size_t later = 1; later <= calls; ++later) {
      pairs.push_back(error);
      pairs.back().later = later;
    }
    return pairs;
  }

  /// Tries the point, and notes the kinds of all that is found there, but for what the list of exceptions excuses.
  Trial tryAt(const Point& point) {
    Trial trial = m_trials->at(point, m_undisturbed);
    // Whether a parent begins to wait before or after the error of its child is up to the scheduler: so a call more or
    // less follows the error.
    EXPECT_TRUE(trial.bReached || point.mode == Mode::kPair) << nameOf(point, m_suite);
    for (const Violation& violation : trial.violations) {
      const Case found{violation.kind,        "planted",       nameOf(point.mode), trial.roles,
                       trial.outcome.refused, violation.detail};
      if (!m_exceptions.excuse(found)) m_kinds.insert(violation.kind);
    }
    return trial;
  }

  [[nodiscard]] const Kinds& kinds() const { return m_kinds; }

 private:
  static Suite suiteOf(const std::string& mistake, Agent agent) {
    Suite suite;
    suite.commands = {plantedCommand(mistake, agent)};
    suite.secrets.addKey(kSecret);
    return suite;
  }

  Suite m_suite;
  ConsoleTexts m_texts;
  Exceptions m_exceptions;
  std::optional<Trials> m_trials;
  Undisturbed m_undisturbed;
  Kinds m_kinds;
};

/// What is found at all points of these modes.
Kinds found(const std::string& mistake, const std::vector<Mode>& modes, Agent agent = Agent::kUntouched,
            const std::vector<std::string>& emulator = {}) {
  Planted planted(mistake, agent, emulator);
  for (const Mode mode : modes) {
    for (const Point& point : planted.points(mode))
      planted.tryAt(point);
  }
  return planted.kinds();
}

TEST(Gate, FindsNothingWhereNothingIsWrong) {
  EXPECT_EQ(found("", {std::begin(kModes), std::end(kModes)}), Kinds{});
}

TEST(Gate, FindsATemporaryFileThatAFailureLeaves) {
  EXPECT_EQ(found("keeps-temporary", {Mode::kOnce}), (Kinds{"left-over", "left-over-secret"}));
}

TEST(Gate, FindsATemporaryFileThatASignalLeaves) {
  EXPECT_EQ(found("ends-at-once", {Mode::kTerminate}), (Kinds{"left-over", "left-over-secret"}));
}

TEST(Gate, FindsATemporaryFileThatTheRunAfterAKillLeaves) {
  const Kinds kinds = found("never-sweeps", {Mode::kKill});
  EXPECT_EQ(kinds.count("left-over"), 1U);
  EXPECT_EQ(kinds.count("rerun-status"), 1U);
}

TEST(Gate, FindsASecretThatOthersCanReadForAMoment) {
  EXPECT_EQ(found("world-readable", {Mode::kOnce}), Kinds{"exposed-secret"});
  EXPECT_EQ(found("world-readable", {Mode::kKill}), Kinds{"exposed-secret"});
}

TEST(Gate, FindsASecretOnTheConsole) {
  const Kinds kinds = found("shows-secret", {Mode::kOnce});
  EXPECT_EQ(kinds.count("secret-shown"), 1U);
}

TEST(Gate, FindsACrash) {
  EXPECT_EQ(found("crashes", {Mode::kOnce}), Kinds{"crash"});
}

TEST(Gate, FindsAnAbortForWantOfMemory) {
  EXPECT_EQ(found("wants-memory", {Mode::kAllocate}), Kinds{"crash"});
}

TEST(Gate, FindsAHalfWrittenFile) {
  EXPECT_EQ(found("writes-in-place", {Mode::kKill}), Kinds{"torn-file"});
}

TEST(Gate, FindsALostSource) {
  EXPECT_EQ(found("borrows-source", {Mode::kOnce}), Kinds{"lost-source"});
}

TEST(Gate, FindsAnUndocumentedText) {
  EXPECT_EQ(found("says-more", {Mode::kOnce}), Kinds{"unknown-text"});
}

TEST(Gate, FindsAnUndocumentedStatus) {
  EXPECT_EQ(found("ends-otherwise", {Mode::kOnce}), Kinds{"unknown-status"});
}

TEST(Gate, FindsAStoppedAgent) {
  EXPECT_EQ(found("leaves-agent-stopped", {Mode::kOnce}, Agent::kRunsOn), Kinds{"agent-stopped"});
  EXPECT_EQ(found("leaves-agent-stopped", {Mode::kKill}, Agent::kRunsOn), Kinds{"agent-stopped-after-kill"});
}

TEST(Gate, TellsApartInAPairWhetherTheKillMetTheToolOrACommand) {
  Planted planted("touches-agent", Agent::kRunsOn);
  std::set<std::set<std::string>> roles;
  for (const Point& error : planted.points(Mode::kPair)) {
    if (error.spot.number != SYS_mkdir) continue;  // the tool does not mind
    for (const Point& pair : planted.killsAfter(error))
      roles.insert(planted.tryAt(pair).roles);
  }
  EXPECT_EQ(roles, (std::set<std::set<std::string>>{{"tool"}, {"tool", "start"}, {"tool", "stop"}}));
  // A start command that was killed is excused; a tool that starts nothing after its own death is not.
  EXPECT_EQ(planted.kinds(), Kinds{"agent-stopped-after-kill"});
}

TEST(Gate, ExcusesACommandThatTheSystemRefusedInAPairToo) {
  Planted planted("touches-agent", Agent::kRunsOn);
  for (const Point& error : planted.points(Mode::kPair)) {
    if (error.spot.process != "0.2") continue;
    const std::vector<Point> pairs = planted.killsAfter(error);
    const bool bMetTheTool = std::any_of(pairs.rbegin(), pairs.rend(), [&](const Point& pair) {
      return planted.tryAt(pair).roles == std::set<std::string>{"tool", "start"};
    });
    EXPECT_TRUE(bMetTheTool) << nameOf(error.mode) << " after " << error.error;
  }
  EXPECT_EQ(planted.kinds(), Kinds{});
}

TEST(Gate, FindsAnAgentThatIsNoneOfTheCommandsBusiness) {
  EXPECT_EQ(found("touches-agent", {Mode::kTerminate}, Agent::kUntouched), Kinds{"agent-touched"});
}

TEST(Gate, FindsARunThatAnEarlierKillMakesFail) {
  const Kinds kinds = found("stumbles", {Mode::kKill});
  EXPECT_EQ(kinds.count("rerun-status"), 1U);
  EXPECT_EQ(kinds.count("rerun-files"), 1U);
}

TEST(Gate, FindsTheMistakesOfAToolThatSomethingElseRuns) {
  const std::vector<Mode> modes = {Mode::kOnce, Mode::kOn, Mode::kKill, Mode::kTerminate};
  EXPECT_EQ(found("", modes, Agent::kUntouched, {"/usr/bin/env"}), Kinds{});
  EXPECT_EQ(found("keeps-temporary", {Mode::kOnce}, Agent::kUntouched, {"/usr/bin/env"}),
            (Kinds{"left-over", "left-over-secret"}));
  EXPECT_EQ(found("writes-in-place", {Mode::kKill}, Agent::kUntouched, {"/usr/bin/env"}), Kinds{"torn-file"});
}

TEST(Gate, NamesAPointSoThatItIsFoundAgain) {
  Suite suite;
  suite.commands = {plantedCommand("", Agent::kUntouched)};
  for (const char* name : {"planted:once:openat-2:EIO", "planted:on:0.1/execve-1:ENOMEM", "planted:kill:close-3",
                           "planted:term:0.1.2/close-3", "planted:alloc:17", "planted:pair:write-1:ENOSPC:4"}) {
    const auto point = pointNamed(name, suite);
    ASSERT_TRUE(point) << name;
    EXPECT_EQ(nameOf(*point, suite), name);
  }
  for (const char* name : {"", "planted", "planted:once", "other:kill:close-1", "planted:kill:nothing-1",
                           "planted:kill:close-0", "planted:once:openat-2", "planted:maybe:close-1"}) {
    EXPECT_FALSE(pointNamed(name, suite)) << name;
  }
}

TEST(GateTexts, KnowsTheDocumentedLines) {
  const ConsoleTexts texts(document());
  EXPECT_GT(texts.size(), 60U);
  EXPECT_EQ(texts.firstUnknownLine("4.6.0.2545\n\n there is a conflict \n"), "");
  EXPECT_EQ(texts.firstUnknownLine("Error : Missing key file, /tmp/x\n"), "");
  EXPECT_EQ(texts.firstUnknownLine("Contacting Zentor... OK\nExamining response... ERROR\n"), "");
  EXPECT_EQ(texts.firstUnknownLine("Curl initialization ERROR\n0"), "");
  EXPECT_TRUE(texts.bStatus(35));
}

TEST(GateTexts, KnowsNoOthers) {
  const ConsoleTexts texts(document());
  EXPECT_EQ(texts.firstUnknownLine("4.6.0.2545\nterminate called\n"), "terminate called");
  EXPECT_EQ(texts.firstUnknownLine("0\n"), "0");
  EXPECT_EQ(texts.firstUnknownLine(" there is a conflict"), " there is a conflict");
  EXPECT_FALSE(texts.bStatus(6));
  EXPECT_FALSE(texts.bStatus(99));
}

const Case kCase{"left-over", "unmanaged", "once", {"tool", "load"}, {"openat", "unlink"}, "/tmp/a.file: f 0600"};

bool bExcused(const std::string& line) {
  Exceptions exceptions(line);
  const bool bDone = exceptions.excuse(kCase);
  EXPECT_EQ(exceptions.all().front().matches, bDone ? 1U : 0U) << line;
  return bDone;
}

TEST(GateExceptions, ExcuseWhatTheyDescribe) {
  EXPECT_TRUE(bExcused("name | left-over | * | * | * | * | * | reason"));
  EXPECT_TRUE(bExcused("name | left-over | stop,unmanaged | on,once | tool | rename,unlink | a.file | reason"));
  EXPECT_TRUE(bExcused("name | left-over | * | * | load | * | * | reason"));
}

TEST(GateExceptions, ExcuseNothingElse) {
  EXPECT_FALSE(bExcused("name | torn-file | * | * | * | * | * | reason"));
  EXPECT_FALSE(bExcused("name | left-over | stop | * | * | * | * | reason"));
  EXPECT_FALSE(bExcused("name | left-over | * | on | * | * | * | reason"));
  EXPECT_FALSE(bExcused("name | left-over | * | * | start,helper | * | * | reason"));
  EXPECT_FALSE(bExcused("name | left-over | * | * | * | rename | * | reason"));
  EXPECT_FALSE(bExcused("name | left-over | * | * | * | * | b.file | reason"));
}

/// Whether a report of one point of this mode, all that there was to try, passes.
bool bPassesWith(const std::string& exceptions, const std::string& mode) {
  Report report{Exceptions(exceptions)};
  std::ostringstream log;
  report.add("point\tunmanaged\t" + mode + "\t1\t0.5", log);
  return report.bPassed(true);
}

TEST(GateExceptions, AreNotLeftOver) {
  const std::string always = "name | left-over | * | * | * | * | * | reason\n";
  const std::string inPairs = "name | left-over | * | pair | * | * | * | reason\n";
  EXPECT_TRUE(bPassesWith("", "once"));
  EXPECT_FALSE(bPassesWith(always, "once"));
  EXPECT_TRUE(bPassesWith(inPairs, "once")) << "nothing was tried that it is for";
  EXPECT_FALSE(bPassesWith(inPairs, "pair"));
  EXPECT_TRUE(bPassesWith("name? | left-over | * | * | * | * | * | reason\n", "once")) << "shows in some runs only";
}

TEST(GateReport, ShowsTheFirstViolations) {
  Report report{Exceptions("name | torn-file | * | * | * | * | * | reason")};
  std::ostringstream log;
  std::ostringstream out;
  report.add("violation\tunmanaged\tkill\tunmanaged:kill:open-3\ttool\topen\ttorn-file\t/a\topen in 0\tstatus 0\t",
             log);
  for (int n = 0; n < 30; ++n) {
    const std::string point = "unmanaged:kill:close-" + std::to_string(n);
    report.add("violation\tunmanaged\tkill\t" + point + "\ttool\tclose\tleft-over\t/a\tclose in 0\tstatus 0\t", log);
  }
  report.print(out, false);
  EXPECT_NE(out.str().find("  left-over  unmanaged:kill:close-0  [close in 0, tool]  /a"), std::string::npos);
  EXPECT_NE(out.str().find("close-19"), std::string::npos);
  EXPECT_EQ(out.str().find("close-20"), std::string::npos) << "the log has them all";
  EXPECT_EQ(out.str().find("open-3"), std::string::npos) << "it is excused";
}

TEST(GateExceptions, NeedAllFields) {
  EXPECT_THROW(Exceptions("name | left-over | * | * | * | * | reason"), std::runtime_error);
  EXPECT_THROW(Exceptions("name | left-over | * | * | * | * | * | "), std::runtime_error);
  EXPECT_EQ(Exceptions("# a comment\n\n").all().size(), 0U);
  EXPECT_NO_THROW(Exceptions{exceptionFile()});
}

}  // namespace
}  // namespace kelt::tests::gate
