#pragma once
// Asking for what the command line did not say.

#include <string>

#include "base/secret.h"

namespace kelt::provision {

/// Whom to fetch from, and as whom.
struct ServerAccess {
  std::string server;  ///< host or host:port
  std::string user;
  std::string password;

  ServerAccess(std::string server_, std::string user_, std::string password_)
      : server(std::move(server_)), user(std::move(user_)), password(std::move(password_)) {}
  ServerAccess(const ServerAccess&) = delete;
  ServerAccess& operator=(const ServerAccess&) = delete;
  ~ServerAccess() { base::wipe(password); }
};

/// Asks on standard input and output for each value that is empty, without echo, the server and the user included. An
/// empty answer is an answer. With nothing to ask, the terminal is not touched.
void askForMissing(ServerAccess& access);

}  // namespace kelt::provision
