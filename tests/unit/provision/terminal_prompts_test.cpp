#include "provision/terminal_prompts.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

#include "pseudo_terminal.h"
#include "support/child.h"
#include "support/private_device.h"

#include "base/console.h"

namespace kelt::provision {
namespace {

using tests::TerminalChild;

/// Asks for what is missing and shows what came of it.
int ask(const char* server, const char* user, const char* password) {
  ServerAccess access(server, user, password);
  askForMissing(access);
  base::print("<" + access.server + "|" + access.user + "|" + access.password + ">\n");
  return 7;
}

int askForAll() {
  return ask("", "", "");
}

bool bSame(const termios& a, const termios& b) {
  // Not the speed members: the flags hold the speed, and not every system fills those.
  const auto flags = [](const termios& modes) {
    return std::array{modes.c_iflag, modes.c_oflag, modes.c_cflag, modes.c_lflag};
  };
  return flags(a) == flags(b) && a.c_line == b.c_line && std::ranges::equal(a.c_cc, b.c_cc);
}

TEST(TerminalPrompts, AskForAllThreeInOrderWithoutEcho) {
  TerminalChild child(askForAll);
  child.expect("zentorserver:");
  child.expectEcho(false);
  child.type("srv:8444\n");
  child.expect("\r\nusername:");
  child.type("admin\n");
  child.expect("\r\npassword:");
  child.type("pass word\n");
  EXPECT_EQ(WEXITSTATUS(child.end()), 7);
  EXPECT_EQ(child.shown(), "zentorserver:\r\nusername:\r\npassword:\r\n<srv:8444|admin|pass word>\r\n");
}

TEST(TerminalPrompts, AskOnlyForWhatIsMissing) {
  TerminalChild child([] { return ask("srv", "", "secret"); });
  child.expect("username:");
  child.type("admin\n");
  child.end();
  EXPECT_EQ(child.shown(), "username:\r\n<srv|admin|secret>\r\n");
}

TEST(TerminalPrompts, TakeAnEmptyAnswer) {
  TerminalChild child(askForAll);
  for (const char* prompt : {"zentorserver:", "username:", "password:"}) {
    child.expect(prompt);
    child.type("\n");
  }
  child.end();
  EXPECT_TRUE(child.shown().ends_with("<||>\r\n"));
}

TEST(TerminalPrompts, LeaveTheTerminalAsItWas) {
  TerminalChild child([] {
    termios unusual{};
    ::tcgetattr(0, &unusual);
    unusual.c_lflag &= ~static_cast<tcflag_t>(ECHOE);
    unusual.c_iflag |= IXANY;
    unusual.c_cc[VERASE] = 'h';
    ::tcsetattr(0, TCSANOW, &unusual);
    base::print("ready");
    char byte = 0;
    if (::read(0, &byte, 1) != 1) return 1;
    askForAll();
    base::print("asked");
    return ::read(0, &byte, 1) == 1 ? 7 : 1;
  });
  child.expect("ready");
  const termios before = child.modes();
  child.type("\n");
  child.expect("zentorserver:");
  child.expectEcho(false);
  child.type("a\nb\nc\n");
  child.expect("asked");
  EXPECT_TRUE(bSame(child.modes(), before));
  child.type("\n");
  EXPECT_EQ(WEXITSTATUS(child.end()), 7);
}

TEST(TerminalPrompts, KeepTheLineEditorOfTheTerminal) {
  TerminalChild child([] { return ask("", "u", "p"); });
  child.expect("zentorserver:");
  child.type("wrong\x15sry\x7fv\n");  // kill the line, erase a character
  child.end();
  EXPECT_TRUE(child.shown().ends_with("<srv|u|p>\r\n"));
}

TEST(TerminalPrompts, EndWithEmptyAnswersAtTheEndOfTheInput) {
  TerminalChild child(askForAll);
  child.expect("zentorserver:");
  child.expectEcho(false);
  child.type("\x04");
  EXPECT_EQ(WEXITSTATUS(child.end()), 7);
  EXPECT_EQ(child.shown(), "zentorserver:\r\nusername:\r\npassword:\r\n<||>\r\n");
}

class EndingSignal : public ::testing::TestWithParam<int> {};

TEST_P(EndingSignal, EndsTheRunOnAnEchoingTerminal) {
  TerminalChild child(askForAll);
  child.expect("zentorserver:");
  child.type("srv\n");
  child.expect("username:");
  child.expectEcho(false);
  child.send(GetParam());
  child.expectEcho(true);
  const int status = child.end();
  EXPECT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(WTERMSIG(status), GetParam());
  EXPECT_EQ(child.shown(), "zentorserver:\r\nusername:");
}

TEST_P(EndingSignal, ThatIsIgnoredStaysIgnored) {
  const int signal = GetParam();
  TerminalChild child([signal] {
    ::signal(signal, SIG_IGN);
    return askForAll();
  });
  child.expect("zentorserver:");
  child.expectEcho(false);
  child.send(signal);
  child.type("a\nb\nc\n");
  EXPECT_EQ(WEXITSTATUS(child.end()), 7);
}

INSTANTIATE_TEST_SUITE_P(Prompts, EndingSignal, ::testing::Values(SIGINT, SIGTERM, SIGHUP, SIGQUIT));

TEST(TerminalPrompts, EndAtTheInterruptKey) {
  TerminalChild child(askForAll);
  child.expect("zentorserver:");
  child.expectEcho(false);
  child.type("\x03");
  const int status = child.end();
  EXPECT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(WTERMSIG(status), SIGINT);
}

TEST(TerminalPrompts, LetASignalOfTheLastMomentActAfterwards) {
  TerminalChild child([] {
    ServerAccess access("", "u", "p");
    askForMissing(access);
    ::raise(SIGTERM);
    return 7;
  });
  child.expect("zentorserver:");
  child.type("srv\n");
  const int status = child.end();
  EXPECT_EQ(WTERMSIG(status), SIGTERM);
}

/// What a shell does for one job in the foreground that stops and is continued: shows the modes at each turn.
int runAsShell() {
  ::signal(SIGTTOU, SIG_IGN);
  const pid_t job = tests::forkBound();
  if (job == 0) {
    ::setpgid(0, 0);
    ::tcsetpgrp(0, ::getpgrp());
    ::signal(SIGTTOU, SIG_DFL);
    ::_exit(askForAll());
  }
  int status = 0;
  ::waitpid(job, &status, WUNTRACED);
  ::tcsetpgrp(0, ::getpgrp());
  termios modes{};
  ::tcgetattr(0, &modes);
  base::print(WIFSTOPPED(status) && (modes.c_lflag & ECHO) != 0 ? "\nstopped, echo" : "\nwrong");
  char byte = 0;
  if (::read(0, &byte, 1) != 1) return 1;
  ::tcsetpgrp(0, job);
  ::kill(job, SIGCONT);
  ::waitpid(job, &status, 0);
  ::tcsetpgrp(0, ::getpgrp());
  return WEXITSTATUS(status);
}

TEST(TerminalPrompts, ShowTheShellAnEchoingTerminalWhenStoppedAndGoOnWithoutEcho) {
  TerminalChild child(runAsShell);
  child.expect("zentorserver:");
  child.type("srv\n");
  child.expect("username:");
  child.expectEcho(false);
  child.type("\x1a");
  child.expect("stopped, echo");
  child.type("\n");
  child.expectEcho(false);
  child.type("admin\n");
  child.expect("password:");
  child.type("secret\n");
  EXPECT_EQ(WEXITSTATUS(child.end()), 7);
  EXPECT_TRUE(child.shown().ends_with("<srv|admin|secret>\r\n"));
  EXPECT_EQ(child.shown().find("admin"), child.shown().rfind("admin"));
}

/// What comes of redirected input.
std::string shownFor(const std::string& input) {
  tests::putFile("/tmp/input", input);
  return tests::outputOf([] {
           tests::Child([]() -> int {
             if (std::freopen("/tmp/input", "r", stdin) == nullptr) ::_exit(1);
             ::_exit(askForAll());
           }).wait();
         })
      .out;
}

class RedirectedPrompts : public tests::PrivateDevice {};

TEST_F(RedirectedPrompts, ReadTheirInputAndGoOn) {
  EXPECT_EQ(shownFor("srv\nadmin\nsecret\n"), "zentorserver:\nusername:\npassword:\n<srv|admin|secret>\n");
}

TEST_F(RedirectedPrompts, ReadNothingAfterALineThatIsTooLong) {
  EXPECT_EQ(shownFor(std::string(255, 's') + "\nadmin\nsecret\n"),
            "zentorserver:\nusername:\npassword:\n<" + std::string(254, 's') + "||>\n");
}

TEST_F(RedirectedPrompts, EndAtTheEndOfTheInput) {
  EXPECT_EQ(shownFor("srv"), "zentorserver:\nusername:\npassword:\n<srv||>\n");
}

}  // namespace
}  // namespace kelt::provision
