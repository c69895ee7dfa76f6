#pragma once
// The one exchange with the management server.

#include <cstddef>
#include <string>

#include "provision/reply.h"
#include "provision/status.h"
#include "provision/terminal_prompts.h"

namespace kelt::provision {

/// Where the package is asked for, below the address of the server.
extern const char* const kPackagePath;

/// The body of the reply, and the object that collects it there. Never cleared in a run: there is one provisioning in
/// each.
extern std::string sB64data;
extern Reply serverReply;

/// Takes a piece of the reply for libcurl: adds the `size` times `count` bytes at `data` to serverReply; `userData` has
/// no use. Always returns that product: data is never refused, only no longer kept past kMaxReply, so that an endless
/// reply costs time (the transfer has no time-out, the user can interrupt it) but no memory.
std::size_t Write_Callback(void* data, std::size_t size, std::size_t count, void* userData);

/// Fetches the package from `access.server`, as it was typed but with a port, into serverReply and prints the progress.
/// `host` and `port` are the parts of the server, for the scope of its address. Returns kSuccess; kNoCurl where libcurl
/// cannot be set up; kTransferFailed, with whatever part of the reply had come. Throws std::bad_alloc.
[[nodiscard]] Status fetchPackage(const ServerAccess& access, const std::string& host, const std::string& port);

}  // namespace kelt::provision
