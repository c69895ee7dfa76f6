#include "base/any_memory.h"

#include <cstdlib>

namespace kelt::base {

bool bAnyMemory() noexcept {
  // Not by operator new, which throws even where it is told not to; volatile, for it to be asked for at all.
  // NOLINTBEGIN(cppcoreguidelines-no-malloc,cppcoreguidelines-owning-memory)
  void* volatile memory = std::malloc(1);
  std::free(memory);
  // NOLINTEND(cppcoreguidelines-no-malloc,cppcoreguidelines-owning-memory)
  return memory != nullptr;
}

}  // namespace kelt::base
