// The injector does to a program what it is told, at the call that it is told, and to nothing else.

#include "support/injector/injector.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include "fault/gate/place.h"
#include "support/private_device.h"

namespace kelt::tests {
namespace {

namespace fs = std::filesystem;

using Injecting = PrivateDevice;

/// The program of the gate's own tests, on what it needs.
Program program() {
  putFile("/opt/Quorvane/planted/data", "old");
  putFile("/tmp/source/secret", "secret", 0600);
  return {fs::read_symlink("/proc/self/exe").parent_path() / "kelt_gate_planted", {}, {}, {}};
}

std::size_t countOf(const Outcome& outcome, long number) {
  return static_cast<std::size_t>(std::count_if(outcome.calls.begin(), outcome.calls.end(),
                                                [&](const auto& call) { return call.spot.number == number; }));
}

Outcome runWith(const Fault& fault) {
  Injector injector;
  Plan plan;
  plan.faults = {fault};
  return injector.run(program(), plan);
}

TEST_F(Injecting, CountsTheCallsFromMainOn) {
  Injector injector;
  Plan plan;
  plan.bRecord = true;
  const Outcome outcome = injector.run(program(), plan);
  EXPECT_EQ(WEXITSTATUS(outcome.status), 0);
  ASSERT_FALSE(outcome.calls.empty());
  EXPECT_EQ(outcome.calls.front().spot, (Spot{"0", SYS_rt_sigprocmask, 1}));
  EXPECT_EQ(outcome.calls.back().spot, (Spot{"0", SYS_exit_group, 1}));
  EXPECT_EQ(countOf(outcome, SYS_fsync), 2U);
  EXPECT_EQ(countOf(outcome, SYS_mmap), 0U);  // of the loader
}

TEST_F(Injecting, FailsOneCallWithoutExecutingIt) {
  const Outcome outcome = runWith({{"0", SYS_rename, 1}, Action::kFail, EIO});
  EXPECT_TRUE(outcome.bHit);
  EXPECT_EQ(outcome.refused, std::set<std::string>{"rename"});
  EXPECT_EQ(WEXITSTATUS(outcome.status), 1);
  EXPECT_EQ(contentOf("/opt/Quorvane/planted/data"), "old");
}

TEST_F(Injecting, ClosesWhatIsClosedWithAnError) {
  const Outcome outcome = runWith({{"0", SYS_close, 1}, Action::kFail, EIO});
  EXPECT_EQ(WEXITSTATUS(outcome.status), 1);
  EXPECT_FALSE(exists("/opt/Quorvane/planted/.data-new"));
}

TEST_F(Injecting, LetsTheHeapStayWhereItIs) {
  Injector injector;
  Plan plan;
  plan.faults = {{{"0", SYS_brk, 1}, Action::kFail, ENOMEM}};
  Program tool = program();
  tool.arguments = {"wants-memory"};
  const Outcome outcome = injector.run(tool, plan);
  EXPECT_EQ(outcome.refused, std::set<std::string>{"brk"});
  EXPECT_TRUE(WIFEXITED(outcome.status));  // the memory comes from elsewhere
  EXPECT_EQ(WEXITSTATUS(outcome.status), 0);
}

TEST_F(Injecting, FailsEveryLaterCallThatWantsTheSame) {
  const Outcome outcome = runWith({{"0", SYS_fsync, 1}, Action::kFailFromHere, EIO});
  EXPECT_EQ(outcome.refused, (std::set<std::string>{"close", "fsync", "unlink"}));
  EXPECT_TRUE(exists("/opt/Quorvane/planted/.data-new"));
}

TEST_F(Injecting, LetsACallThatCannotFailSoPass) {
  const Outcome outcome = runWith({{"0", SYS_fsync, 1}, Action::kFail, ECONNRESET});
  EXPECT_FALSE(outcome.bHit);
  EXPECT_EQ(WEXITSTATUS(outcome.status), 0);
}

TEST_F(Injecting, KillsBeforeTheCall) {
  const Outcome outcome = runWith({{"0", SYS_rename, 1}, Action::kKill, 0});
  EXPECT_TRUE(outcome.bHit);
  EXPECT_EQ(WTERMSIG(outcome.status), SIGKILL);
  EXPECT_EQ(contentOf("/opt/Quorvane/planted/data"), "old");
  EXPECT_TRUE(exists("/opt/Quorvane/planted/.data-new"));
}

TEST_F(Injecting, LetsTheCallBeMadeAfterASignalThatWaits) {
  const Outcome outcome = runWith({{"0", SYS_rename, 1}, Action::kTerminate, 0});
  EXPECT_TRUE(outcome.bHit);
  EXPECT_EQ(WEXITSTATUS(outcome.status), 0);
  EXPECT_NE(contentOf("/opt/Quorvane/planted/data"), "old");
}

TEST_F(Injecting, EndsTheProgramBySignalBeforeTheCall) {
  const Outcome outcome = runWith({{"0", SYS_rt_sigprocmask, 1}, Action::kTerminate, 0});
  EXPECT_TRUE(WIFSIGNALED(outcome.status));
  EXPECT_EQ(WTERMSIG(outcome.status), SIGTERM);
}

TEST_F(Injecting, CountsForkedProcessesByThemselvesUntilTheyBecomeAnotherProgram) {
  Injector injector;
  Plan plan;
  plan.bRecord = true;
  Program tool = program();
  tool.arguments = {"touches-agent"};
  const Outcome outcome = injector.run(tool, plan);
  const auto last = std::find_if(outcome.calls.rbegin(), outcome.calls.rend(),
                                 [](const RecordedCall& call) { return call.spot.process == "0.2"; });
  ASSERT_NE(last, outcome.calls.rend());
  EXPECT_TRUE(last->spot.number == SYS_execve || last->spot.number == SYS_exit_group);
}

TEST_F(Injecting, TellsWhatForkedProcessesBecome) {
  gate::bringPrograms();
  putDirectory("/run/agent");
  Program tool = program();
  tool.arguments = {"touches-agent"};
  const std::map<std::string, std::string> expected = {{"0.1", std::string(gate::kAgentProgram) + " stop "},
                                                       {"0.2", std::string(gate::kAgentProgram) + " start "}};
  EXPECT_EQ(Injector().run(tool, {}).commands, expected);
  Plan plan;
  plan.faults = {{{"0.1", SYS_execve, 1}, Action::kFail, EIO}};
  EXPECT_EQ(Injector().run(tool, plan).commands.count("0.1"), 0U);
}

TEST_F(Injecting, KillsAtALaterCallOfAPair) {
  Injector injector;
  Plan plan;
  plan.faults = {{{"0", SYS_fsync, 1}, Action::kFail, EIO}};
  plan.killAfter = 2;  // close, unlink
  const Outcome outcome = injector.run(program(), plan);
  EXPECT_TRUE(outcome.bHit && outcome.bKilledAfter);
  EXPECT_EQ(outcome.killedProcess, "0");
  EXPECT_EQ(outcome.killedWhere, "unlink SIGKILL");
  EXPECT_EQ(WTERMSIG(outcome.status), SIGKILL);
  EXPECT_TRUE(exists("/opt/Quorvane/planted/.data-new"));
}

TEST_F(Injecting, EndsARunThatDoesNotEnd) {
  Injector injector(1);
  Program tool = program();
  tool.arguments = {"loops"};
  Plan plan;
  plan.faults = {{{"0", SYS_rename, 1}, Action::kFail, EIO}};
  EXPECT_TRUE(injector.run(tool, plan).bHung);
}

TEST_F(Injecting, EndsAProcessThatARunLeaves) {
  Injector injector(1);
  Program tool = program();
  tool.arguments = {"leaves-process"};
  EXPECT_TRUE(injector.run(tool, {}).bLeft);
  EXPECT_TRUE(injector.runFree(tool).bLeft);
}

}  // namespace
}  // namespace kelt::tests
