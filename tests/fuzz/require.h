#pragma once
// What a fuzz target expects of its input's treatment.

#include <cstdio>
#include <cstdlib>

namespace kelt::tests {

/// Ends the run as a finding, with `claim` said, when it does not hold.
inline void require(bool bHolds, const char* claim) {
  if (bHolds) return;
  std::fprintf(stderr, "does not hold: %s\n", claim);
  std::abort();
}

}  // namespace kelt::tests
