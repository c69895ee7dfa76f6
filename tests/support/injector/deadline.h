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

/// All processes below this one, adopted ones included.
[[nodiscard]] std::vector<pid_t> descendants();

/// SIGKILL to each of them.
void killDescendants();

/// Whether one of them could go on if it got the processor, and has not had `seconds` of it yet: then the machine is
/// busy, and nothing is said about the process.
[[nodiscard]] bool bDescendantsStarve(int seconds);

}  // namespace kelt::tests
