#pragma once
// The server as it was typed: host and port, and the interface of a link-local IPv6 address.

#include <string>

namespace kelt::provision {

/// Splits "host:port" at the last colon, and "[IPv6 literal]:port" after the bracket; `host` keeps its brackets.
/// Returns whether there was a port. Without one, `host` and `port` are unchanged, except that a bracketed literal goes
/// to `host`.
/// An IPv6 address without brackets loses its last group to the port. A last colon with nothing after it gives an
/// empty port; after a bracket it counts as none.
bool split_host_and_port(std::string server, std::string& host,
                         std::string& port);  // NOLINT(performance-unnecessary-value-param)

/// Sets CURLOPT_ADDRESS_SCOPE on the handle `curl` when the first IPv6 address of `host` that carries a scope names
/// one; otherwise, and for a null handle, does nothing. May wait for the name service. A host that is not found
/// is left to the transfer, which says so.
void setAddressScopeIfRequired(void* curl, const std::string& host, const std::string& port);

}  // namespace kelt::provision
