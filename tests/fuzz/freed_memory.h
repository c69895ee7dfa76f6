#pragma once
// Sees what is in memory when it is given back.

#include <cstddef>
#include <string>
#include <vector>

namespace kelt::tests {

/// While it lives, looks into every block of memory that is released, for any of some byte sequences. One at a time.
class FreedMemory {
 public:
  /// No sequence may be empty; they are compared as they are.
  explicit FreedMemory(const std::vector<std::string>& sequences);
  FreedMemory(const FreedMemory&) = delete;
  FreedMemory& operator=(const FreedMemory&) = delete;
  ~FreedMemory();

  /// How many of the blocks released since held one.
  [[nodiscard]] std::size_t found() const;
};

}  // namespace kelt::tests
