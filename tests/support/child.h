#pragma once
// Work in a process of its own.

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <linux/capability.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace kelt::tests {

/// What a Child ends with whose action threw.
inline constexpr int kThrew = 250;

/// A process that runs `action` and ends with the status it returns.
class Child {
 public:
  explicit Child(const std::function<int()>& action) {
    std::fflush(nullptr);  // or the child would print the rest once more
    m_pid = ::fork();
    if (m_pid == 0) std::exit(statusOf(action));
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
  // Nothing may reach the test runner, which would go on with the next test in this process too.
  static int statusOf(const std::function<int()>& action) {
    try {
      return action();
    } catch (...) {
      return kThrew;
    }
  }

  pid_t m_pid = -1;
  int m_status = -1;
};

/// Takes all capabilities from this process, for good: permissions then stop even uid 0. False when that fails.
[[nodiscard]] inline bool dropCapabilities() {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct none[2] = {};
  return ::syscall(SYS_capset, &header, &none) == 0;
}

}  // namespace kelt::tests
