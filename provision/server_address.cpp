#include "provision/server_address.h"

#include <array>
#include <curl/curl.h>
#include <optional>

#include "platform/network_util.h"
#include "provision/handles.h"

namespace kelt::provision {
namespace {

/// The scope of one resolved address, where it is an IPv6 address that carries one.
std::optional<unsigned int> scopeOf(ANetworkUtil& network, const addrinfo& entry) {
  if (entry.ai_family != AF_INET6) return std::nullopt;
  std::array<char, 32> text{};
  // By its text, in which the scope stands after a "%" (RFC 4007, 11).
  if (::getnameinfo(entry.ai_addr, entry.ai_addrlen, text.data(), text.size(), nullptr, 0, NI_NUMERICHOST) != 0) {
    return std::nullopt;
  }
  unsigned int scope = 0;
  if (network.qveGetScopeId(text.data(), scope) == 0) return std::nullopt;
  return scope;
}

}  // namespace

// NOLINTNEXTLINE(performance-unnecessary-value-param)
bool split_host_and_port(std::string server, std::string& host, std::string& port) {
  // In brackets a colon is a part of an IPv6 address, after them it is the port's.
  const std::size_t bracket = server.rfind(']');
  if (bracket == std::string::npos) {
    const std::size_t colon = server.rfind(':');
    if (colon == std::string::npos) return false;
    host = server.substr(0, colon);
    port = server.substr(colon + 1);
    return true;
  }
  host = server.substr(0, bracket + 1);
  const std::size_t mark = server.rfind("]:");
  if (mark == std::string::npos || mark + 2 >= server.size()) return false;
  port = server.substr(mark + 2);
  return true;
}

void setAddressScopeIfRequired(void* curl, const std::string& host, const std::string& port) {
  if (curl == nullptr) return;
  ANetworkUtil network;
  addrinfo* found = nullptr;
  if (network.qveCreateAddrinfo(host, port, &found, false) != 0) return;
  const Addresses list(found);
  for (const addrinfo* entry = list.get(); entry != nullptr; entry = entry->ai_next) {
    // The first one decides, as libcurl takes one scope for all addresses.
    if (const auto scope = scopeOf(network, *entry)) {
      curl_easy_setopt(curl, CURLOPT_ADDRESS_SCOPE, static_cast<long>(*scope));
      return;
    }
  }
}

}  // namespace kelt::provision
