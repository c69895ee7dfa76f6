#pragma once
// Programs of this folder under strace, which makes their system calls fail.

#include <string>
#include <vector>

namespace kelt::tests {

/// How a program under strace ended.
struct Ending {
  int status = -1;         ///< exit status, or -1 after a signal
  bool bInjected = false;  ///< whether the fault was reached
  std::string trace;       ///< the calls that were traced
};

/// Runs the program `name` of the build directory with `arguments` (a shell's words) under strace, with the given
/// faults, each an argument of strace's option -e, and the calls `traced`. Its messages go to /tmp/errors.
[[nodiscard]] Ending runUnder(const std::string& name, const std::string& arguments,
                              const std::vector<std::string>& faults, const std::string& traced);

/// A system call, and an error that it is made to fail with.
struct Fault {
  std::string call;
  std::string error;
};

/// Each call of `faults` once, in the order of its first fault.
[[nodiscard]] std::vector<std::string> callsOf(const std::vector<Fault>& faults);

}  // namespace kelt::tests
