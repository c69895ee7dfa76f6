#pragma once
// What a fuzz target prints, cheaply enough for every input.

#include <string>
#include <sys/mman.h>
#include <unistd.h>

#include "fuzz/require.h"

namespace kelt::tests {

/// What `action` writes to standard output. Standard error stays as it is: whatever goes wrong is told there.
template <typename Action>
[[nodiscard]] std::string standardOutputOf(const Action& action) {
  static const int memory = ::memfd_create("output", MFD_CLOEXEC);
  static const int kept = ::dup(STDOUT_FILENO);
  require(::ftruncate(memory, 0) == 0 && ::lseek(memory, 0, SEEK_SET) == 0, "output can be kept");
  require(::dup2(memory, STDOUT_FILENO) == STDOUT_FILENO, "output can be sent elsewhere");
  action();
  require(::dup2(kept, STDOUT_FILENO) == STDOUT_FILENO, "output can be sent back");
  std::string text(static_cast<std::size_t>(::lseek(memory, 0, SEEK_END)), '\0');
  require(::pread(memory, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()), "output can be read");
  return text;
}

}  // namespace kelt::tests
