#pragma once
// Stands in for provisioning in this test program, so that the switch is tested with every outcome of it and without a
// network: it takes the place of the operation of provision/provision.h.

#include <functional>
#include <string>
#include <vector>

namespace kelt::tests {

/// What provisioning does and what it was asked for.
struct FakeServer {
  int status = 0;                  ///< the status to return
  std::function<void()> deliver;   ///< what to do before that
  std::vector<std::string> asked;  ///< per call: directory, server, user, password, separated by "|"
};

/// The one that the next call uses.
FakeServer& fakeServer();

}  // namespace kelt::tests
