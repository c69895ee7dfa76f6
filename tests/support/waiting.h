#pragma once
// Waiting for what happens in another process or thread: until it is so, and not for a time.

#include <chrono>
#include <functional>
#include <string>
#include <sys/types.h>

namespace kelt::tests {

/// Far above what anything here takes on a loaded machine: whoever waits so long waits for what never comes.
inline constexpr std::chrono::seconds kPatience{300};
inline constexpr int kPatienceMilliseconds = 300'000;

/// Looks again and again until `bSo` holds. False when it does not within kPatience.
[[nodiscard]] bool bComesTrue(const std::function<bool()>& bSo);

/// Whether a process or thread (a directory below /proc) sleeps, as one does that waits for something.
[[nodiscard]] bool bSleeps(const std::string& task);

/// Whether a process sleeps with a handler for SIGALRM, as one does that waits for the interprocess lock.
[[nodiscard]] bool bWaitsForLock(pid_t process);

}  // namespace kelt::tests
