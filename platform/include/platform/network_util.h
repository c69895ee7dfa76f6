#pragma once
// Addresses of the management server, by the resolver of the system.

#include <netdb.h>
#include <string>

/// Questions about addresses; without a state of its own.
class ANetworkUtil {
 public:
  /// Resolves `host` and `port` for a stream connection into `*result`, which the caller frees with freeaddrinfo. The
  /// brackets around an IPv6 literal are dropped. `numericOnly` asks for numeric addresses only. Returns 0 or an EAI_
  /// code, with `*result` unchanged.
  int qveCreateAddrinfo(const std::string& host, const std::string& port, addrinfo** result, const bool& numericOnly);

  /// The scope of a numeric IPv6 address: the part after "%", as an interface name or number. Returns non-zero and
  /// fills `scopeId` when there is one that names an existing interface or is a positive number; else 0, `scopeId`
  /// unchanged.
  int qveGetScopeId(const std::string& numericAddress, unsigned int& scopeId);
};
