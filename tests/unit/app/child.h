#pragma once
// Work in a process of its own.

#include <cstdlib>
#include <functional>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace kelt::tests {

/// A process that runs `action` and ends with the status it returns.
class Child {
 public:
  explicit Child(const std::function<int()>& action) : m_pid(::fork()) {
    if (m_pid == 0) std::exit(action());
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  ~Child() { (void)wait(); }

  [[nodiscard]] pid_t pid() const { return m_pid; }

  /// Waits for its end and returns the status as waitpid gives it.
  int wait() {
    if (m_pid > 0) ::waitpid(std::exchange(m_pid, -1), &m_status, 0);
    return m_status;
  }

  /// The exit status, or -1 when a signal ended it.
  int exitStatus() {
    const int status = wait();
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  pid_t m_pid;
  int m_status = -1;
};

}  // namespace kelt::tests
