#pragma once
// Takes libcurl's place in a fuzz target of provisioning: hands over the reply that it was given, and notes what it was
// asked for. Names are not looked up: a host has to be an address.

#include <cstddef>
#include <optional>
#include <string>

namespace kelt::tests {

struct CannedServer {
  std::string reply;          ///< the body
  std::size_t piece = 0;      ///< handed over in pieces of so many bytes; 0: all at once
  bool bReachable = true;     ///< else the transfer fails
  std::string url;            ///< what was asked for
  std::optional<long> scope;  ///< of the address, where one was set
};

/// The server of this program. A target sets it before each input.
CannedServer& cannedServer();

}  // namespace kelt::tests
