#pragma once

#include <cstddef>

namespace kelt::tests {

/// Makes the `which`-th allocation of exactly `size` bytes from now on fail, in this process.
void failAllocation(std::size_t size, int which);

/// The same for the `which`-th allocation, of any size, that tells its failure by a null pointer.
void failUnthrowing(int which);

}  // namespace kelt::tests
