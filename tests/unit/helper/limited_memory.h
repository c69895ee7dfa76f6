#pragma once
// Memory that runs out on demand: this program's own operator new.

#include <cstddef>

namespace kelt::tests {

/// Makes every allocation of more than `bytes` bytes fail (std::bad_alloc), until called again.
void limitBlocks(std::size_t bytes);

}  // namespace kelt::tests
