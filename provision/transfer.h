#pragma once
// The one exchange with the management server.

#include <cstddef>
#include <string>

#include "provision/status.h"
#include "provision/terminal_prompts.h"

namespace kelt::provision {

/// The most of a reply that is kept, far beyond any package of site list and keys.
inline constexpr std::size_t kMaxReply = std::size_t{32} * 1024 * 1024;

/// The body of the reply. Never cleared: there is one provisioning per run.
extern std::string sB64data;

/// Whether a part of the reply was not kept, because it is over kMaxReply or there was no memory for it.
[[nodiscard]] bool bReplyCut();

/// Takes a piece of the reply for libcurl: `size` times `count` bytes at `data`. Always returns that product: data is
/// never refused, only no longer kept past kMaxReply, so that an endless reply costs time (the transfer has no
/// time-out, the user can interrupt it) but no memory.
std::size_t Write_Callback(void* data, std::size_t size, std::size_t count, void* userData);

/// Fetches the package from `access.server`, as it was typed but with a port, into sB64data and prints the progress.
/// `host` and `port` are the parts of the server, for the scope of its address. Returns kSuccess, kNoCurl or
/// kTransferFailed.
[[nodiscard]] Status fetchPackage(const ServerAccess& access, const std::string& host, const std::string& port);

}  // namespace kelt::provision
