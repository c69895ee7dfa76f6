#include <array>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

#include "limited_memory.h"
#include "support/agent_on_device.h"
#include "support/private_device.h"

#include "base/unique_fd.h"
#include "helper/unix_command_line_helper.h"

using kelt::helper::unixCommandLineHelper;
using kelt::tests::calls;
using kelt::tests::outputOf;
using kelt::tests::putCommand;
using ::testing::Test;
using Words = std::vector<std::string>;

namespace {

Words split(const std::wstring& line) {
  Words words;
  unixCommandLineHelper().splitStringToParameters(line, words);
  return words;
}

TEST(CommandLineSplitting, CutsAtRunsOfWhiteSpace) {
  EXPECT_EQ(split(L"a  b\tc"), (Words{"a", "b", "c"}));
  EXPECT_EQ(split(L" \t a \n\v\f\r b \t"), (Words{"a", "b"}));
}

TEST(CommandLineSplitting, KeepsQuotesAndWhatTheyEnclose) {
  EXPECT_EQ(split(L"\"a b\""), (Words{"\"a b\""}));
  EXPECT_EQ(split(L"sh -c \"echo a b\""), (Words{"sh", "-c", "\"echo a b\""}));
  EXPECT_EQ(split(L"\"\""), (Words{"\"\""}));
  EXPECT_EQ(split(L"x\"y z\"w"), (Words{"x\"y z\"w"}));
  EXPECT_EQ(split(L"a \"\" b"), (Words{"a", "\"\"", "b"}));
}

TEST(CommandLineSplitting, KeepsWhiteSpaceInQuotesAsItIs) {
  EXPECT_EQ(split(L"\" \t\n\""), (Words{"\" \t\n\""}));
}

TEST(CommandLineSplitting, LetsAnOpenQuoteRunToTheEnd) {
  EXPECT_EQ(split(L"a \"b c "), (Words{"a", "\"b c "}));
  EXPECT_EQ(split(L"\""), (Words{"\""}));
}

TEST(CommandLineSplitting, FindsNothingInAnEmptyLine) {
  EXPECT_EQ(split(L""), Words{});
  EXPECT_EQ(split(L" \t\r\n"), Words{});
}

TEST(CommandLineSplitting, GivesOtherQuotesAndSignsNoMeaning) {
  EXPECT_EQ(split(L"a 'b c' d\\ e ;$f"), (Words{"a", "'b", "c'", "d\\", "e", ";$f"}));
}

TEST(CommandLineSplitting, PassesUtf8AndSingleBytesOn) {
  EXPECT_EQ(split(L"caf\u00E9 \u00A0 \u20AC"), (Words{"caf\xC3\xA9", "\xC2\xA0", "\xE2\x82\xAC"}));
  EXPECT_EQ(split(L"a\xDCFF\xDCA0\xDC85z \xDCFF"), (Words{"a\xFF\xA0\x85z", "\xFF"}));
}

TEST(CommandLineSplitting, EndsAtAZeroCharacter) {
  EXPECT_EQ(split(std::wstring(L"a b\0c", 5)), (Words{"a", "b"}));
}

TEST(CommandLineSplitting, AddsToTheWordsThatAreThere) {
  Words words{"first"};
  unixCommandLineHelper().splitStringToParameters(L"second third", words);
  EXPECT_EQ(words, (Words{"first", "second", "third"}));
}

class CommandExecution : public kelt::tests::PrivateDevice {
 protected:
  static bool run(const std::string& line) {
    return unixCommandLineHelper().ExecCmd(quorvane_com::orv::tellcomn_ansi_to_wide(line));
  }

  static std::string outputOfRun(const std::string& line) {
    return outputOf([&] { EXPECT_TRUE(run(line)); }).out;
  }
};

/// How the last child ended, as SIGCHLD told.
volatile std::sig_atomic_t g_childCode = 0;
volatile std::sig_atomic_t g_childStatus = 0;

/// Takes down the end of children while it lives.
class ChildWatch {
 public:
  ChildWatch() {
    struct sigaction action {};
    action.sa_flags = SA_SIGINFO;
    action.sa_sigaction = [](int, siginfo_t* info, void*) {
      g_childCode = info->si_code;
      g_childStatus = info->si_status;
    };
    ::sigaction(SIGCHLD, &action, &m_before);
    g_childCode = -1;
    g_childStatus = -1;
  }
  ChildWatch(const ChildWatch&) = delete;
  ChildWatch& operator=(const ChildWatch&) = delete;
  ~ChildWatch() { ::sigaction(SIGCHLD, &m_before, nullptr); }

 private:
  struct sigaction m_before {};
};

TEST_F(CommandExecution, RunsTheCommandWithItsArgumentsAndWaits) {
  const std::string slow = putCommand("slow", "sleep 0.2; echo slow finished >> /tmp/calls");
  EXPECT_TRUE(run(slow + " one  two"));
  EXPECT_EQ(calls(), (Words{"slow one two", "slow finished"}));
}

TEST_F(CommandExecution, PassesTheFirstWordAsTheNameAndFindsItThroughPath) {
  EXPECT_EQ(outputOfRun("cat /proc/self/cmdline"), std::string("cat\0/proc/self/cmdline\0", 23));
}

TEST_F(CommandExecution, UsesNoShell) {
  kelt::tests::putFile("/tmp/arguments", "#!/bin/sh\nfor word; do echo \"<$word>\"; done\n", 0755);
  EXPECT_EQ(outputOfRun("/tmp/arguments $HOME * ; \"a  b\" > /tmp/x"),
            "<$HOME>\n<*>\n<;>\n<\"a  b\">\n<>>\n</tmp/x>\n");
  EXPECT_FALSE(kelt::tests::exists("/tmp/x"));
}

TEST_F(CommandExecution, TakesLdLibraryPathFromTheChildOnly) {
  ASSERT_EQ(::setenv("LD_LIBRARY_PATH", "/opt/Quorvane/orv/lib", 1), 0);
  ASSERT_EQ(::setenv("KELT_OTHER", "kept", 1), 0);
  const std::string environment = "\n" + outputOfRun("env");
  EXPECT_EQ(environment.find("\nLD_LIBRARY_PATH="), std::string::npos) << environment;
  EXPECT_NE(environment.find("\nKELT_OTHER=kept\n"), std::string::npos) << environment;
  EXPECT_STREQ(::getenv("LD_LIBRARY_PATH"), "/opt/Quorvane/orv/lib");
  ::unsetenv("LD_LIBRARY_PATH");
  ::unsetenv("KELT_OTHER");
}

TEST_F(CommandExecution, IsContentHoweverTheCommandEnds) {
  const ChildWatch watch;
  EXPECT_TRUE(run(putCommand("three", "exit 3")));
  EXPECT_EQ(g_childCode, CLD_EXITED);
  EXPECT_EQ(g_childStatus, 3);
  EXPECT_TRUE(run(putCommand("killed", "kill -KILL $$")));
  EXPECT_EQ(g_childCode, CLD_KILLED);
  EXPECT_EQ(calls(), (Words{"three", "killed"}));
}

TEST_F(CommandExecution, EndsAChildThatCannotRunWithStatusOne) {
  kelt::tests::putFile("/tmp/no-program", "#!/bin/sh\n", 0644);
  const ChildWatch watch;
  for (const char* line : {"/tmp/missing", "no-such-program", "/tmp/no-program", "/tmp", "", " \t ", "\"\""}) {
    g_childCode = -1;
    g_childStatus = -1;
    EXPECT_TRUE(run(line)) << line;
    EXPECT_EQ(g_childCode, CLD_EXITED) << line;
    EXPECT_EQ(g_childStatus, 1) << line;
  }
}

TEST_F(CommandExecution, PrintsNothingAndNothingTwice) {
  const auto output = outputOf([] {
    std::fputs("buffered", stdout);
    EXPECT_TRUE(run("/tmp/missing"));
    EXPECT_TRUE(run(""));
    std::fflush(stdout);
  });
  EXPECT_EQ(output.out, "buffered");
  EXPECT_EQ(output.err, "");
}

TEST_F(CommandExecution, WaitsOnAfterAnInterruption) {
  struct sigaction action {};  // without SA_RESTART
  action.sa_handler = [](int) {};
  ASSERT_EQ(::sigaction(SIGALRM, &action, nullptr), 0);
  const itimerval every{{0, 20000}, {0, 20000}};
  const itimerval never{};
  const std::string slow = putCommand("slow", "sleep 0.2; echo finished >> /tmp/calls");
  ASSERT_EQ(::setitimer(ITIMER_REAL, &every, nullptr), 0);
  EXPECT_TRUE(run(slow));
  ASSERT_EQ(::setitimer(ITIMER_REAL, &never, nullptr), 0);
  EXPECT_EQ(calls(), (Words{"slow", "finished"}));
  EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1) << "a child is left";
}

TEST_F(CommandExecution, StartsTheChildWithDefaultSignals) {
  sigset_t blocked;
  sigset_t before;
  ::sigemptyset(&blocked);
  for (const int signal : {SIGTERM, SIGINT, SIGHUP})
    ::sigaddset(&blocked, signal);
  ASSERT_EQ(::sigprocmask(SIG_BLOCK, &blocked, &before), 0);
  struct sigaction ignore {};
  ignore.sa_handler = SIG_IGN;
  struct sigaction pipeBefore {};
  ASSERT_EQ(::sigaction(SIGPIPE, &ignore, &pipeBefore), 0);

  const std::string status = outputOfRun("cat /proc/self/status");
  EXPECT_NE(status.find("SigBlk:\t0000000000000000\n"), std::string::npos) << status;
  EXPECT_NE(status.find("SigIgn:\t0000000000000000\n"), std::string::npos) << status;

  sigset_t after;
  ::sigprocmask(SIG_SETMASK, &before, &after);
  EXPECT_EQ(::sigismember(&after, SIGTERM), 1) << "the mask of the run itself stays";
  ::sigaction(SIGPIPE, &pipeBefore, nullptr);
}

TEST_F(CommandExecution, HandsNoDescriptorOfTheRunDown) {
  const kelt::base::UniqueFd secret(::open("/tmp/secret", O_CREAT | O_RDWR | O_CLOEXEC, 0600));
  ASSERT_TRUE(secret);
  const std::string open = outputOfRun("ls -l /proc/self/fd");
  EXPECT_EQ(open.find("/tmp/secret"), std::string::npos) << open;
  EXPECT_NE(open.find(" 1 -> "), std::string::npos) << open;
}

TEST_F(CommandExecution, RunsNothingWithoutMemoryForTheCommand) {
  const std::string command = putCommand("never");
  const unixCommandLineHelper helper;
  AString line(quorvane_com::orv::tellcomn_ansi_to_wide(command + " " + std::string(100000, 'x')));
  kelt::tests::limitBlocks(65536);
  const bool bResult = helper.ExecCmd(std::move(line));
  kelt::tests::limitBlocks(SIZE_MAX);
  EXPECT_FALSE(bResult);
  EXPECT_EQ(calls(), Words{});
}

TEST_F(CommandExecution, ReturnsTrueAtOnceWhereNoProcessCanBeStarted) {
  const std::string command = putCommand("never");
  const int status = kelt::tests::statusOfProcess([&] {
    // Root itself has no limit; in a namespace of its own user it has.
    static_cast<void>(::setresuid(65534, 65534, 65534));
    const rlimit none{0, 0};
    if (::setrlimit(RLIMIT_NPROC, &none) != 0 || ::fork() >= 0) return false;
    return run(command);
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(calls(), Words{});
}

}  // namespace
