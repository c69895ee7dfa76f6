#pragma once
// How much memory this process's C++ code holds: the test program's own operator new counts it.

#include <cstddef>

namespace kelt::tests {

/// The bytes held at this moment.
[[nodiscard]] std::size_t heldMemory();

/// The most that was held at any moment since the last call of forgetPeak.
[[nodiscard]] std::size_t peakMemory();
void forgetPeak();

}  // namespace kelt::tests
