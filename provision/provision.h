#pragma once
// Site list and key files from the management server.

#include <string>

namespace kelt::provision {

/// The operation of this folder, which is all that the binary links of it.
class Provision {
 public:
  /// Fetches the agent's key files and site list over HTTPS and unpacks them into `dir`, asking on the terminal for
  /// whichever of `server` (host or host:port), `user` and `password` is empty. The server's certificate is not
  /// verified. Prints its progress. Returns 0, or the status of the step that failed (provision/status.h); files
  /// already written then stay. Afterwards `dir` holds what the archive held, "agentfipsmode" and "SiteList.xml".
  ///
  /// To be called once in a process, which from then on leaves no core dump and cannot be traced by its user. Throws
  /// std::bad_alloc, before anything is fetched.
  static int iGetProvisionFiles(const std::wstring& dir, const std::string& server, const std::string& user,
                                const std::string& password);
};

}  // namespace kelt::provision
