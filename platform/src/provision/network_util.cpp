#include "platform/network_util.h"

#include <charconv>
#include <net/if.h>
#include <optional>

namespace {

/// In a URL an IPv6 address stands in brackets, which getaddrinfo(3) does not take.
std::string withoutBrackets(const std::string& host) {
  const bool bracketed = host.size() >= 2 && host.front() == '[' && host.back() == ']';
  return bracketed ? host.substr(1, host.size() - 2) : host;
}

/// Of digits alone: strtoul(3) would take a sign or blanks before them.
std::optional<unsigned int> positiveNumber(const std::string& text) {
  unsigned int number = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc{} || stop != end || number == 0) return std::nullopt;
  return number;
}

}  // namespace

int ANetworkUtil::qveCreateAddrinfo(const std::string& host, const std::string& port, addrinfo** result,
                                    const bool& numericOnly) {
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;  // else each address comes once for each kind of socket
  hints.ai_flags = numericOnly ? AI_NUMERICHOST : 0;
  // A variable of our own, so that `*result` stays as it is on failure.
  addrinfo* found = nullptr;
  const int status = ::getaddrinfo(withoutBrackets(host).c_str(), port.c_str(), &hints, &found);
  if (status == 0) *result = found;
  return status;
}

int ANetworkUtil::qveGetScopeId(const std::string& numericAddress, unsigned int& scopeId) {
  const std::size_t percent = numericAddress.find('%');
  if (percent == std::string::npos) return 0;
  const std::string scope = numericAddress.substr(percent + 1);
  // The name first: an interface may be called by a number, and then the name is what is meant.
  if (const unsigned int index = ::if_nametoindex(scope.c_str()); index != 0) {
    scopeId = index;
    return 1;
  }
  const std::optional<unsigned int> number = positiveNumber(scope);
  if (!number) return 0;
  scopeId = *number;
  return 1;
}
