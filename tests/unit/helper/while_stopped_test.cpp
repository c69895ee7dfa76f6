#include "helper/while_stopped.h"

#include <cerrno>
#include <csignal>
#include <new>
#include <stdexcept>

#include "limited_memory.h"
#include "support/private_device.h"

#include "platform/logger.h"

namespace kelt::helper {
namespace {

using Steps = std::vector<std::string>;

/// Does as told when it is to be stopped or started, and writes down that it was asked.
class ToldAgent : public CommandLineHelper {
 public:
  bool StartORVService() override { return note("start", m_onStart); }
  bool StopORVService() override { return note("stop", m_onStop); }
  bool CheckVersion(std::wstring& /*version*/) override { return note("check", {}); }
  bool CheckConflictList(std::wstring& /*conflictList*/) override { return note("check", {}); }
  int PrepareORV(bool, bool, std::wstring, std::wstring, bool, std::wstring, bool, bool, std::wstring, std::wstring,
                 std::wstring) override {
    return note("switch", {}) ? 0 : 1;
  }
  bool ImportKeys(bool /*fromUpdateDir*/) override { return note("import", {}); }

  void reserveStart() override {
    if (m_onReserve) m_onReserve();
  }

  std::function<void()> m_onReserve;
  std::function<bool()> m_onStart;
  std::function<bool()> m_onStop;
  Steps m_steps;

 private:
  bool note(const char* step, const std::function<bool()>& action) {
    m_steps.emplace_back(step);
    return !action || action();
  }
};

class WhileStopped : public tests::PrivateDevice {
 protected:
  void SetUp() override {
    PrivateDevice::SetUp();
    tests::putDirectory("/opt/Quorvane/orv/scratch");
  }
  void TearDown() override { tests::limitBlocks(SIZE_MAX); }

  Interruption work(StartAgain startAgain, const std::function<bool()>& work) {
    return whileStopped(m_agent, startAgain, [&] {
      m_agent.m_steps.emplace_back("work");
      return !work || work();
    });
  }

  /// The texts of the agent's log, each preceded by its mark.
  static Steps log() {
    Steps lines;
    const std::string path = "/opt/Quorvane/orv/scratch/logs/keltcfg.log";
    if (!tests::exists(path)) return lines;
    const std::string text = tests::contentOf(path);
    for (std::size_t start = 0, end = 0; (end = text.find('\n', start)) != std::string::npos; start = end + 1) {
      const std::string line = text.substr(start, end - start);
      lines.push_back(line.substr(line.find('\t') + 1, 1) + " " + line.substr(line.rfind('\t') + 1));
    }
    return lines;
  }

  static void expect(const Interruption& result, bool bStopped, bool bDone, bool bStartFailed) {
    EXPECT_EQ(result.bStopped, bStopped);
    EXPECT_EQ(result.bDone, bDone);
    EXPECT_EQ(result.bStartFailed, bStartFailed);
  }

  ToldAgent m_agent;
};

bool no() {
  return false;
}
bool lackMemory() {
  throw std::bad_alloc();
}

TEST_F(WhileStopped, StopsWorksAndStarts) {
  expect(work(StartAgain::kAlways, {}), true, true, false);
  EXPECT_EQ(m_agent.m_steps, (Steps{"stop", "work", "start"}));
  EXPECT_EQ(log(), Steps{});
}

TEST_F(WhileStopped, DoesNothingToAnAgentThatCannotBeStopped) {
  m_agent.m_onStop = no;
  expect(work(StartAgain::kAlways, {}), false, false, false);
  EXPECT_EQ(m_agent.m_steps, Steps{"stop"});
}

TEST_F(WhileStopped, StartsAfterWorkThatFailed) {
  expect(work(StartAgain::kAlways, no), true, false, false);
  EXPECT_EQ(m_agent.m_steps, (Steps{"stop", "work", "start"}));
}

TEST_F(WhileStopped, LeavesTheAgentStoppedWhenToldSo) {
  expect(work(StartAgain::kNever, {}), true, true, false);
  expect(work(StartAgain::kNever, no), true, false, false);
  expect(work(StartAgain::kNever, lackMemory), true, false, false);
  expect(work(StartAgain::kAfterFailure, {}), true, true, false);
  EXPECT_EQ(m_agent.m_steps, (Steps{"stop", "work", "stop", "work", "stop", "work", "stop", "work"}));
}

TEST_F(WhileStopped, StartsAnAgentThatIsToStayStoppedWhenTheWorkFails) {
  expect(work(StartAgain::kAfterFailure, no), true, false, false);
  expect(work(StartAgain::kAfterFailure, lackMemory), true, false, false);
  EXPECT_EQ(m_agent.m_steps, (Steps{"stop", "work", "start", "stop", "work", "start"}));
}

TEST_F(WhileStopped, TellsAStartThatFailedAndTriesItOnce) {
  m_agent.m_onStart = no;
  expect(work(StartAgain::kAlways, {}), true, true, true);
  EXPECT_EQ(m_agent.m_steps, (Steps{"stop", "work", "start"}));
}

TEST_F(WhileStopped, KeepsWhatAStartTakesBeforeTheStopUnlessThereIsToBeNone) {
  m_agent.m_onReserve = [&] { m_agent.m_steps.emplace_back("reserve"); };
  expect(work(StartAgain::kAlways, {}), true, true, false);
  expect(work(StartAgain::kAfterFailure, no), true, false, false);
  expect(work(StartAgain::kNever, {}), true, true, false);
  EXPECT_EQ(m_agent.m_steps,
            (Steps{"reserve", "stop", "work", "start", "reserve", "stop", "work", "start", "stop", "work"}));
}

TEST_F(WhileStopped, GoesOnWithoutWhatCannotBeKept) {
  m_agent.m_onReserve = [] { throw std::runtime_error("no reserve"); };
  expect(work(StartAgain::kAlways, {}), true, true, false);
  EXPECT_EQ(m_agent.m_steps, (Steps{"stop", "work", "start"}));
  EXPECT_EQ(log(), Steps{"E Nothing is kept for the start of the agent: no reserve"});
}

TEST_F(WhileStopped, StartsAfterWorkThatThrewAndLogsWhat) {
  expect(work(StartAgain::kAlways, lackMemory), true, false, false);
  expect(work(StartAgain::kAlways, []() -> bool { throw std::runtime_error("no such \xC3\xB1"); }), true, false, false);
  expect(work(StartAgain::kAlways, []() -> bool { throw 7; }), true, false, false);
  EXPECT_EQ(m_agent.m_steps, (Steps{"stop", "work", "start", "stop", "work", "start", "stop", "work", "start"}));
  EXPECT_EQ(log(), (Steps{"E The work on the stopped agent failed: out of memory",
                          "E The work on the stopped agent failed: no such \xC3\xB1",
                          "E The work on the stopped agent failed: an exception of an unknown kind"}));
}

TEST_F(WhileStopped, StartsWithoutALogLineWhereMemoryIsLackingForThatToo) {
  bool bLimited = false;
  m_agent.m_onStart = [] {
    tests::limitBlocks(SIZE_MAX);
    return true;
  };
  m_agent.m_steps.reserve(3);
  expect(work(StartAgain::kAlways, [&] { return tests::limitBlocks(0), bLimited = true, lackMemory(); }), true, false,
         false);
  EXPECT_TRUE(bLimited);
  EXPECT_EQ(m_agent.m_steps, (Steps{"stop", "work", "start"}));
  EXPECT_EQ(log(), Steps{});
}

TEST_F(WhileStopped, StartsAfterAStopThatThrewWithoutBeginningTheWork) {
  m_agent.m_onStop = lackMemory;
  expect(work(StartAgain::kAlways, {}), false, false, false);
  expect(work(StartAgain::kAfterFailure, {}), false, false, false);
  expect(work(StartAgain::kNever, {}), false, false, false);
  EXPECT_EQ(m_agent.m_steps, (Steps{"stop", "start", "stop", "start", "stop"}));
  EXPECT_EQ(log(), Steps(3, "E Stopping the agent failed: out of memory"));
}

TEST_F(WhileStopped, TriesAStartThatThrewOnceMore) {
  int tries = 0;
  m_agent.m_onStart = [&] { return ++tries > 1 || lackMemory(); };
  expect(work(StartAgain::kAlways, {}), true, true, false);
  EXPECT_EQ(m_agent.m_steps, (Steps{"stop", "work", "start", "start"}));
  EXPECT_EQ(log(), Steps{"E Starting the agent failed: out of memory"});
}

TEST_F(WhileStopped, TellsAStartThatThrewTwice) {
  m_agent.m_onStart = lackMemory;
  expect(work(StartAgain::kAlways, {}), true, true, true);
  EXPECT_EQ(m_agent.m_steps, (Steps{"stop", "work", "start", "start"}));
  EXPECT_EQ(log(), Steps(2, "E Starting the agent failed: out of memory"));
}

TEST_F(WhileStopped, HoldsBackTheSignalsThatEndARunAndLeavesTheMaskAsItWas) {
  sigset_t before;
  sigset_t during[3];
  sigset_t after;
  ::sigprocmask(SIG_SETMASK, nullptr, &before);
  m_agent.m_onStop = [&] { return ::sigprocmask(SIG_SETMASK, nullptr, &during[0]) == 0; };
  m_agent.m_onStart = [&] { return ::sigprocmask(SIG_SETMASK, nullptr, &during[2]) == 0; };
  expect(work(StartAgain::kAlways, [&] { return ::sigprocmask(SIG_SETMASK, nullptr, &during[1]) != 0; }), true, false,
         false);
  ::sigprocmask(SIG_SETMASK, nullptr, &after);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    for (const sigset_t& mask : during)
      EXPECT_EQ(::sigismember(&mask, signal), 1);
    EXPECT_EQ(::sigismember(&after, signal), ::sigismember(&before, signal));
  }
}

TEST_F(WhileStopped, ALogLineThatFindsNoMemoryChangesNothingElse) {
  tests::limitBlocks(0);
  errno = ENOTTY;
  logInfo(L"keltcfg", L"a line that is longer than what fits into a string without an allocation");
  const int after = errno;
  tests::limitBlocks(SIZE_MAX);
  EXPECT_EQ(after, ENOTTY);
  EXPECT_EQ(log(), Steps{});
}

}  // namespace
}  // namespace kelt::helper
