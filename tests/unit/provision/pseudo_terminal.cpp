#include "pseudo_terminal.h"

#include <csignal>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>
#include <utmp.h>

#include "support/bound_process.h"
#include "support/waiting.h"

namespace kelt::tests {

TerminalChild::TerminalChild(const std::function<int()>& action) {
  int own = -1;
  int childs = -1;
  EXPECT_EQ(::openpty(&own, &childs, nullptr, nullptr, nullptr), 0);
  m_terminal.reset(own);
  const base::UniqueFd theirs(childs);
  EXPECT_EQ(threadCount(), 1) << "a child of a process with threads may hang";
  m_child = forkBound();
  if (m_child == 0) {
    m_terminal.reset();
    ::_exit(::login_tty(childs) == 0 ? action() : 98);
  }
  if (m_child < 0) throw std::runtime_error("no process can be started");  // a signal to -1 is one to everybody
}

TerminalChild::~TerminalChild() {
  if (m_child <= 0) return;
  ::kill(m_child, SIGKILL);
  ::waitpid(m_child, nullptr, 0);
}

void TerminalChild::type(const std::string& text) const {
  EXPECT_EQ(::write(m_terminal.get(), text.data(), text.size()), static_cast<ssize_t>(text.size()));
}

void TerminalChild::expect(const std::string& text) {
  while (!m_shown.ends_with(text)) {
    if (readMore(kPatienceMilliseconds)) continue;
    ADD_FAILURE() << "waited for \"" << text << "\", shown was \"" << m_shown << "\"";
    return;
  }
}

termios TerminalChild::modes() const {
  termios modes{};
  EXPECT_EQ(::tcgetattr(m_terminal.get(), &modes), 0);
  return modes;
}

void TerminalChild::expectEcho(bool on) const {
  EXPECT_TRUE(bComesTrue([&] { return bEchoes() == on; })) << "the terminal " << (on ? "does not echo" : "echoes");
}

void TerminalChild::send(int signal) const {
  ::kill(m_child, signal);
}

int TerminalChild::end() {
  while (readMore(kPatienceMilliseconds)) {
  }
  int status = -1;
  EXPECT_EQ(::waitpid(m_child, &status, 0), m_child);
  m_child = -1;
  return status;
}

bool TerminalChild::readMore(int milliseconds) {
  pollfd waited{m_terminal.get(), POLLIN, 0};
  if (::poll(&waited, 1, milliseconds) <= 0) return false;
  char buffer[1024];
  const ssize_t got = ::read(m_terminal.get(), buffer, sizeof buffer);
  if (got <= 0) return false;
  m_shown.append(buffer, static_cast<std::size_t>(got));
  return true;
}

}  // namespace kelt::tests
