#pragma once

namespace kelt::tests {

/// Switches on the loopback interface of the tests' own network namespace and gives it the addresses fe80::1 and
/// fe80::2 beside its usual ones.
void bringLoopbackUp();

}  // namespace kelt::tests
