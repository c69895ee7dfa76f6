#pragma once
// Whether a process still runs, asked by others than its parent.

#include <cstdint>
#include <sys/types.h>

namespace kelt::base {

/// A process, by its number and a moment in which it had that number: the system gives numbers again.
struct SeenProcess {
  pid_t number = 0;
  /// Hundredths of a second since the system came up.
  std::int64_t seenAt = 0;
};

/// This process, now. Async-signal-safe.
[[nodiscard]] SeenProcess thisProcess() noexcept;

/// Whether that process runs, or has become another program that does; not where it ended and nobody waited for it yet.
/// What the system does not tell (there is no /proc) counts as no. Takes no memory, and a descriptor for the moment.
[[nodiscard]] bool bRuns(const SeenProcess& process) noexcept;

}  // namespace kelt::base
