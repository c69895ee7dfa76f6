#pragma once
// The management server of a process that runs trials, in a process of its own.

#include <string>

#include "base/unique_fd.h"

namespace kelt::tests::gate {

/// Serves this reply to every request, on a loopback port of its own, until `lifeline` is closed everywhere.
struct ServerProcess {
  std::string port;
  base::UniqueFd lifeline;
};

/// Ends the program with a message where the server cannot be started. There may be no threads.
[[nodiscard]] ServerProcess startServer(const std::string& reply);

}  // namespace kelt::tests::gate
