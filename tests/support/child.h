#pragma once
// Work in a process of its own.

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <gtest/gtest.h>
#include <limits>
#include <linux/capability.h>
#include <stdexcept>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

#include "support/bound_process.h"

namespace kelt::tests {

/// What a Child ends with whose action threw.
inline constexpr int kThrew = 250;

/// A process that runs `action` and ends with the status it returns, or with this process. Fails the test where this
/// one has further threads: what they hold at that moment stays held in the child for ever.
class Child {
 public:
  explicit Child(const std::function<int()>& action) {
    std::fflush(nullptr);  // or the child would print the rest once more
    EXPECT_EQ(threadCount(), 1) << "a child of a process with threads may hang";
    m_pid = forkBound();
    if (m_pid == 0) std::exit(statusOf(action));
    if (m_pid < 0) throw std::runtime_error("no process can be started");
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  ~Child() { (void)wait(); }

  /// Its number; once it was waited for, one that no process has: a signal sent there reaches nobody.
  [[nodiscard]] pid_t pid() const { return m_pid; }

  /// Waits for its end and returns the status as waitpid gives it.
  int wait() {
    if (m_pid != kNobody) m_status = waitStatusOf(std::exchange(m_pid, kNobody));
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

  static constexpr pid_t kNobody = std::numeric_limits<pid_t>::max();  // -1 would be everybody

  pid_t m_pid = kNobody;
  int m_status = -1;
};

/// Runs expectations in a process of their own, for what a process does once: the tests before them, or an earlier run
/// of the same one, may have had it done already.
inline void expectInOwnProcess(const std::function<void()>& expectations) {
  Child child([&] {
    expectations();
    return ::testing::Test::HasFailure() ? 1 : 0;
  });
  EXPECT_EQ(child.exitStatus(), 0) << "what failed stands above";
}

/// Takes all capabilities from this process, for good: permissions then stop even uid 0. False when that fails.
[[nodiscard]] inline bool dropCapabilities() {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct none[2] = {};
  return ::syscall(SYS_capset, &header, &none) == 0;
}

}  // namespace kelt::tests
