#pragma once
// Addresses.

#include <netdb.h>
#include <string>

class ANetworkUtil {
 public:
  /// Resolves `host` and `port` for a stream connection into `*result`, which the caller frees with freeaddrinfo. The
  /// brackets around an IPv6 literal are dropped. `numericOnly` asks for numeric addresses only. Returns 0 or an EAI_
  /// code, with `*result` unchanged.
  int qveCreateAddrinfo(const std::string& host, const std::string& port, addrinfo** result, const bool& numericOnly);

  /// The scope of a numeric IPv6 address: the part behind "%", as an interface name or number. Returns non-zero and
  /// fills `scopeId` when there is one that names an existing interface or is a positive number; else 0, `scopeId`
  /// unchanged.
  int qveGetScopeId(const std::string& numericAddress, unsigned int& scopeId);
};
