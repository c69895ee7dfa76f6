#pragma once
// Asking for what the command line did not say.

#include <string>
#include <string_view>

#include "base/secret.h"

namespace kelt::provision {

/// Whom to fetch from, and as whom.
struct ServerAccess {
  std::string server;  ///< host or host:port
  std::string user;
  std::string password;  ///< the only copy; wiped at the end

  // Views, as strings handed over by value would leave a short password in the objects that they were moved from.
  ServerAccess(std::string_view server_, std::string_view user_, std::string_view password_)
      : server(server_), user(user_), password(password_) {}
  ServerAccess(const ServerAccess&) = delete;
  ServerAccess& operator=(const ServerAccess&) = delete;
  ~ServerAccess() { base::wipe(password); }
};

/// Asks on standard input and output for each value that is empty, without echo, the server and the user included. An
/// empty answer is an answer. With nothing to ask, the terminal is not touched.
void askForMissing(ServerAccess& access);

}  // namespace kelt::provision
