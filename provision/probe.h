#pragma once
// A look at a management server, without credentials.

#include <functional>
#include <string>

#include "base/result.h"

namespace kelt::provision {

/// Takes one fact: its name and its value.
using ProbeFacts = std::function<void(const std::string& name, const std::string& value)>;

/// Asks the management server at `server`, read as -e is, for the package without credentials, as a transfer would
/// begin, and tells `take` what it comes to, each fact as soon as it is known:
///   libcurl       its version
///   host, port    the parts of the address; port is empty where nothing follows the last colon
///   user-in-address  where the address holds a user name; nothing is asked then
///   resolving     the look-up begins
///   address       a numeric address of the host, as often as there are; unresolved: why there is none
///   scope         the interface number of a link-local address
///   connecting    the exchange begins
///   connected     the address (of the server, or of a proxy) that took the connection
///   tls           version and cipher; subject, issuer, not-before, not-after, sha256: of the certificate, which nobody
///                 verifies; validity: "expired" or "not yet valid", where it is one of these
///   status        the number of the HTTP status; offers: a kind of authentication, as often as there are
///   negotiate     where this libcurl would choose Negotiate
///   failed        why the exchange did not come to an answer
/// Waits five seconds at most for the exchange, and for the look-up as long as the system's resolver does. Sends no
/// credentials. Errors: those of base::loadModuleSymbol, with nothing told.
[[nodiscard]] Status probeServer(const std::string& server, const ProbeFacts& take);

/// Tells the version of libcurl alone, having loaded what provisioning needs. Errors likewise.
[[nodiscard]] Status probeLibraries(const ProbeFacts& take);

}  // namespace kelt::provision
