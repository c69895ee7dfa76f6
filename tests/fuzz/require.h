#pragma once
// What a fuzz target expects of its input's treatment.

#include <stdexcept>

namespace kelt::tests {

/// A claim that an input refutes. libFuzzer keeps the input, as nobody catches this there; the replay of known inputs
/// names it and goes on.
class Finding : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Throws a Finding that says `claim` when it does not hold.
inline void require(bool bHolds, const char* claim) {
  if (!bHolds) throw Finding(claim);
}

}  // namespace kelt::tests
