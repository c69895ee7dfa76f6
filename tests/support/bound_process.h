#pragma once
// Processes that do not outlive the one that started them.

#include <sys/types.h>

namespace kelt::tests {

/// As ::fork(), but the child is killed as soon as this process ends, however that ends. Call it where this process has
/// one thread only: what other threads held at that moment stays held in the child for ever. Returns -1, with errno,
/// when there is no child.
[[nodiscard]] pid_t forkBound();

/// How many threads this process has; 1 where an emulator has some of its own.
[[nodiscard]] int threadCount();

/// Waits for the end of a child, through interruptions. Returns its wait status, or -1 when there is no such child.
int waitStatusOf(pid_t child);

}  // namespace kelt::tests
