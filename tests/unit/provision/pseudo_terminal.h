#pragma once
// A child process on a pseudo-terminal.

#include <functional>
#include <string>
#include <sys/types.h>
#include <termios.h>

#include "base/unique_fd.h"

namespace kelt::tests {

/// Runs `action` in a child whose standard input, output and error are a new terminal; the child then ends with the
/// status that it returns.
class TerminalChild {
 public:
  explicit TerminalChild(const std::function<int()>& action);
  TerminalChild(const TerminalChild&) = delete;
  TerminalChild& operator=(const TerminalChild&) = delete;
  ~TerminalChild();

  /// Types at the terminal.
  void type(const std::string& text) const;

  /// Reads what the terminal shows until all of it, from the start, ends with `text`. Fails the test after
  /// minutes.
  void expect(const std::string& text);

  /// All that was shown up to now.
  [[nodiscard]] const std::string& shown() const { return m_shown; }

  /// The modes of the terminal as they are.
  [[nodiscard]] termios modes() const;
  [[nodiscard]] bool bEchoes() const { return (modes().c_lflag & ECHO) != 0; }

  /// Waits until the terminal echoes, or no longer does. Fails the test after minutes.
  void expectEcho(bool on) const;

  void send(int signal) const;

  /// Waits for the end of the child; reads what it still shows. Returns its wait status.
  int end();

 private:
  bool readMore(int milliseconds);

  pid_t m_child = -1;
  base::UniqueFd m_terminal;
  std::string m_shown;
};

}  // namespace kelt::tests
