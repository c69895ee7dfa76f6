#pragma once
// A limit to waiting for processes.

#include <sys/types.h>
#include <vector>

namespace kelt::tests {

/// While it lives, SIGALRM interrupts waits of this process once `seconds` are over, and ever again every second then.
class Deadline {
 public:
  explicit Deadline(int seconds);
  Deadline(const Deadline&) = delete;
  Deadline& operator=(const Deadline&) = delete;
  ~Deadline();

  [[nodiscard]] bool bOver() const;
};

/// All children of this process, adopted ones included.
[[nodiscard]] std::vector<pid_t> children();

/// SIGKILL to each of them.
void killChildren();

}  // namespace kelt::tests
