#pragma once
// The bound in time.

#include <chrono>  // IWYU pragma: keep
#include <functional>

#include "check/findings.h"

namespace kelt::check {

/// How long a run may look. A device whose file system or name service hangs is just what has to be reported.
struct Limits {
  std::chrono::milliseconds all{10'000};     ///< from the start of the process that looks
  std::chrono::milliseconds network{5'000};  ///< from the first thing begun that waits for others
};

/// Runs `look` in a process of its own, which can write to no file and not to the console, and gives what it finds.
/// When a limit is over, that process is killed, whatever it waits for, a resolver or a file system that does not
/// answer among it: what it had found until then is reported, and a finding that says what took too long. A process
/// that dies is reported likewise. To be called in a process of one thread that ignores SIGPIPE and SIGXFSZ.
[[nodiscard]] Report supervised(const Limits& limits, const std::function<void(Findings&)>& look);

}  // namespace kelt::check
