#pragma once
// Asking for what the command line did not say.

#include <string>
#include <string_view>

#include "base/secret.h"

namespace kelt::provision {

/// Whom to fetch from, and as whom. Any of the three may be empty, which means that it has to be asked for.
struct ServerAccess {
  std::string server;  ///< host or host:port
  std::string user;
  std::string password;  ///< the only copy; wiped at the end

  // Views, as strings handed over by value would leave a short password in the objects that they were moved from.
  ServerAccess(std::string_view givenServer, std::string_view givenUser, std::string_view givenPassword)
      : server(givenServer), user(givenUser), password(givenPassword) {}
  ServerAccess(const ServerAccess&) = delete;
  ServerAccess& operator=(const ServerAccess&) = delete;
  ~ServerAccess() { base::wipe(password); }
};

/// Asks on standard input and output for each value that is empty, without echo, the server and the user included. An
/// empty answer is an answer, and so is what an input that has ended gives. With nothing to ask, the terminal is not
/// touched; it is as it was when this returns, also by an exception (std::bad_alloc).
void askForMissing(ServerAccess& access);

}  // namespace kelt::provision
