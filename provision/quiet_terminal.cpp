#include "provision/quiet_terminal.h"

#include <cerrno>
#include <poll.h>
#include <unistd.h>

#include "provision/terminal_modes.h"

namespace kelt::provision {
namespace {

// Written by the handler, which runs only while ppoll waits.
std::array<volatile std::sig_atomic_t, NSIG> caught{};

/// A handler may do little more (async-signal-safety); letCaughtSignalsAct does the rest once the wait is over.
extern "C" void noteSignal(int signal) {
  caught[static_cast<std::size_t>(signal)] = 1;
}

void installHandler(int signal, struct sigaction& before) {
  ::sigaction(signal, nullptr, &before);
  // What the caller had ignored, nohup(1) for instance, stays so.
  if (before.sa_handler == SIG_IGN) return;
  struct sigaction action {};
  action.sa_handler = noteSignal;
  ::sigemptyset(&action.sa_mask);
  ::sigaction(signal, &action, nullptr);
}

/// Stops while this is a background job, as writing to the terminal would: the modes to save are those that the shell
/// gives a foreground job, not those of its own line editor. The bound is for a job that nothing can stop.
void awaitForeground(int fd) {
  constexpr int kMostStops = 1000;
  for (int i = 0; i < kMostStops; ++i) {
    const pid_t foreground = ::tcgetpgrp(fd);
    if (foreground < 0 || foreground == ::getpgrp()) return;
    (void)::raise(SIGTTOU);
  }
}

}  // namespace

QuietTerminal::QuietTerminal(int fd) : m_fd(fd) {
  sigset_t waiting;
  ::sigemptyset(&waiting);
  for (const int signal : kSignals)
    ::sigaddset(&waiting, signal);
  // Before anything is changed: a signal that came in between would leave a terminal that does not echo.
  ::sigprocmask(SIG_BLOCK, &waiting, &m_before);
  for (std::size_t i = 0; i < kSignals.size(); ++i)
    installHandler(kSignals[i], m_actions[i]);
  quieten();
}

QuietTerminal::~QuietTerminal() {
  putBack();
  // Still blocked: none of them meets our handlers any more.
  for (std::size_t i = 0; i < kSignals.size(); ++i)
    ::sigaction(kSignals[i], &m_actions[i], nullptr);
  // What arrived since the last read acts here, on a terminal that echoes again.
  ::sigprocmask(SIG_SETMASK, &m_before, nullptr);
}

std::size_t QuietTerminal::read(std::span<char> buffer) {
  while (true) {
    if (!waitForInput()) return 0;
    const ssize_t got = ::read(m_fd, buffer.data(), buffer.size());
    if (got >= 0) return static_cast<std::size_t>(got);
    // Another reader of the terminal may have been quicker.
    if (errno != EINTR && errno != EAGAIN) return 0;
  }
}

void QuietTerminal::quieten() {
  awaitForeground(m_fd);
  // Where there is nothing to save, it is no terminal, and nothing is put back.
  m_saved = TtySave(m_fd) == 0;
  TtyNoEcho(m_fd);
}

void QuietTerminal::putBack() const {
  if (m_saved) TtyRestore(m_fd);
}

bool QuietTerminal::waitForInput() {
  pollfd waited{m_fd, POLLIN, 0};
  // Signals are let in here and nowhere else, so that none slips in between a look for it and the wait.
  while (::ppoll(&waited, 1, nullptr, &m_before) < 0) {
    if (errno != EINTR) return false;
    letCaughtSignalsAct();
  }
  return true;
}

void QuietTerminal::letCaughtSignalsAct() {
  for (std::size_t i = 0; i < kSignals.size(); ++i) {
    auto& flag = caught[static_cast<std::size_t>(kSignals[i])];
    if (flag == 0) continue;
    flag = 0;
    letAct(i);
  }
}

void QuietTerminal::letAct(std::size_t index) {
  const int signal = kSignals[index];
  putBack();
  struct sigaction ours {};
  ::sigaction(signal, &m_actions[index], &ours);
  // Blocked as yet: it waits for the mask below, and by then the terminal echoes and the action is the caller's.
  (void)::raise(signal);
  sigset_t blocked;
  ::sigprocmask(SIG_SETMASK, &m_before, &blocked);  // dies or stops in here, unless the caller handles the signal
  ::sigprocmask(SIG_SETMASK, &blocked, nullptr);
  ::sigaction(signal, &ours, nullptr);
  quieten();
}

}  // namespace kelt::provision
