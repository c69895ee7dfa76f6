#pragma once
// Reading from a terminal that does not echo, and that nobody is left alone with.

#include <array>
#include <csignal>
#include <cstddef>
#include <span>

namespace kelt::provision {

/// While it lives, the terminal `fd` does not echo; its destructor puts the terminal back. SIGINT, SIGTERM, SIGHUP,
/// SIGQUIT and SIGTSTP wait until read, which puts the terminal back before it lets them act: the run dies by such a
/// signal, or stops by it and goes on without echo when it is continued. What is no terminal is read all the same. One
/// at a time.
class QuietTerminal {
 public:
  /// Switches echo off. In a job in the background it first waits to come to the foreground, as writing would; what the
  /// terminal is put back to is then what the shell gives a foreground job.
  explicit QuietTerminal(int fd);
  QuietTerminal(const QuietTerminal&) = delete;
  QuietTerminal& operator=(const QuietTerminal&) = delete;
  ~QuietTerminal();

  /// Waits for input and reads up to the size of `buffer` bytes. Returns their number, 0 at the end of the input or on
  /// an error.
  [[nodiscard]] std::size_t read(std::span<char> buffer);

 private:
  static constexpr std::array kSignals = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP};

  /// Waits for the foreground, saves the modes that the shell gives there, and switches echo off.
  void quieten();
  /// Only where there were modes to save: a tioSave that was never filled would leave the terminal unusable.
  void putBack() const;
  bool waitForInput();             // false on an error
  void letCaughtSignalsAct();      // each on a terminal that was put back
  void letAct(std::size_t index);  // of a signal in kSignals

  int m_fd;
  bool m_saved = false;                                       // whether there is something to put back
  sigset_t m_before{};                                        // the signals that were blocked
  std::array<struct sigaction, kSignals.size()> m_actions{};  // what the signals did
};

}  // namespace kelt::provision
