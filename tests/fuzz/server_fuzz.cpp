// The server as it is typed: what becomes host, port, address and scope of it.

#include <arpa/inet.h>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <net/if.h>
#include <netdb.h>
#include <optional>
#include <string>
#include <string_view>

#include "fuzz/canned_server.h"
#include "fuzz/require.h"
#include "fuzz/standard_output.h"

#include "platform/network_util.h"
#include "provision/provision_client.h"
#include "provision/server_address.h"
#include "provision/status.h"

namespace {

using kelt::tests::cannedServer;
using kelt::tests::require;

bool bContains(std::string_view text, std::string_view part) {
  return text.find(part) != std::string_view::npos;
}

struct Split {
  bool bPort;
  std::string host;
  std::string port;
};

/// An address without a bracket: all of it is there again, cut at a colon with none after it.
void checkPlain(const std::string& server, const Split& split) {
  require(split.bPort == bContains(server, ":"), "a colon makes a port");
  if (split.bPort) {
    require(split.host + ":" + split.port == server, "host and port are all of it");
    require(!bContains(split.port, ":"), "the last colon counts");
  } else {
    require(split.host == "old host" && split.port == "old port", "without a port nothing is changed");
  }
}

/// An address with a bracket: the host ends at the last one, the port follows the last "]:".
void checkBracketed(const std::string& server, const Split& split) {
  require(server.starts_with(split.host) && split.host.ends_with(']'), "the host keeps its bracket");
  require(!bContains(server.substr(split.host.size()), "]"), "the last bracket counts");
  require(split.bPort == (bContains(server, "]:") && !server.ends_with("]:")), "something after \"]:\" makes a port");
  if (split.bPort) {
    require(!split.port.empty() && server.ends_with("]:" + split.port), "the port is all that follows");
    require(!bContains(split.port, "]:"), "the last \"]:\" counts");
  } else {
    require(split.port == "old port", "without a port it is not changed");
  }
}

Split checkSplit(const std::string& server) {
  Split split{false, "old host", "old port"};
  split.bPort = kelt::provision::split_host_and_port(server, split.host, split.port);
  if (bContains(server, "]")) {
    checkBracketed(server, split);
  } else {
    checkPlain(server, split);
  }
  return split;
}

/// Whether the system takes this for the one interface that there is: a colon starts the label of an alias of it.
bool bLoopback(const std::string& name) {
  return name.size() < IF_NAMESIZE && name.substr(0, name.find(':')) == "lo";
}

/// The scope that follows a "%": an interface's, or a number from 1 on.
void checkScopeId(const std::string& server) {
  unsigned int scope = 4711;
  const bool bFound = ANetworkUtil().qveGetScopeId(server, scope) != 0;
  const std::size_t percent = server.find('%');
  const std::string name = percent == std::string::npos ? "" : server.substr(percent + 1);
  unsigned long number = 0;
  const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), number);
  const bool bNumber = error == std::errc() && end == name.data() + name.size() && number != 0 && number <= 0xFFFFFFFF;
  if (bLoopback(name)) {
    require(bFound && scope == ::if_nametoindex("lo"), "an interface has a scope");
  } else {
    require(bFound == bNumber && scope == (bNumber ? number : 4711), "a number is a scope, nothing else is");
  }
}

std::string withoutBrackets(const std::string& host) {
  const bool bBracketed = host.size() >= 2 && host.front() == '[' && host.back() == ']';
  return bBracketed ? host.substr(1, host.size() - 2) : host;
}

/// How an address with a scope is written.
std::string written(const sockaddr_in6& address) {
  char text[INET6_ADDRSTRLEN] = {};
  char name[IF_NAMESIZE] = {};
  ::inet_ntop(AF_INET6, &address.sin6_addr, text, sizeof text);
  const bool bLocal = IN6_IS_ADDR_LINKLOCAL(&address.sin6_addr) || IN6_IS_ADDR_MC_LINKLOCAL(&address.sin6_addr);
  const bool bNamed = bLocal && ::if_indextoname(address.sin6_scope_id, name) != nullptr;
  return std::string(text) + "%" + (bNamed ? name : std::to_string(address.sin6_scope_id));
}

/// The scope that libcurl has to be told of one address.
std::optional<long> scopeOf(const addrinfo& entry) {
  if (entry.ai_family != AF_INET6) return std::nullopt;
  sockaddr_in6 address{};
  std::memcpy(&address, entry.ai_addr, sizeof address);
  // The room that there is for its text is that of 31 characters.
  if (address.sin6_scope_id == 0 || written(address).size() > 31) return std::nullopt;
  return static_cast<long>(address.sin6_scope_id);
}

/// That of a host which is an address; the system takes a "*" for two.
std::optional<long> scopeOf(const std::string& host, const std::string& port) {
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (::getaddrinfo(withoutBrackets(host).c_str(), port.c_str(), &hints, &found) != 0) return std::nullopt;
  const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> list(found, ::freeaddrinfo);
  for (const addrinfo* entry = found; entry != nullptr; entry = entry->ai_next) {
    if (const auto scope = scopeOf(*entry)) return scope;
  }
  return std::nullopt;
}

/// What is asked of which server.
void checkRequest(const std::string& server, const Split& split) {
  cannedServer() = {};
  cannedServer().bReachable = false;
  int status = -1;
  const std::string printed = kelt::tests::standardOutputOf(
      [&] { status = kelt::provision::provisionFiles("/tmp/nowhere", server, "user", "password"); });
  require(status == kelt::provision::kTransferFailed, "no server, no transfer");
  require(printed == "Initializing CURL...\nCurl initialization OK\nContacting Zentor... ERROR\n", "it says so");
  require(cannedServer().url == "https://" + server + (split.bPort ? "" : ":8443") +
                                    "/remote/RepositoryMgmt.PackageManagedAgentFilesCmd.do",
          "the server is asked as it was typed, with a port");
  const bool bHost = split.bPort || split.host != "old host";
  const auto scope = scopeOf(bHost ? split.host : "", split.bPort ? split.port : "8443");
  require(cannedServer().scope == scope, "the scope is that of the address");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string server(reinterpret_cast<const char*>(data), size);
  const Split split = checkSplit(server);
  // Neither a command line nor a terminal's line holds a zero byte; an empty one would be asked for.
  if (server.empty() || bContains(server, std::string_view("\0", 1))) return 0;
  checkScopeId(server);
  checkRequest(server, split);
  return 0;
}
