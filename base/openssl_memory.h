#pragma once
// OpenSSL copies a secret key several times while it reads or writes one, and gives those copies back as they are. Who
// includes this links libcrypto; nothing else of this folder needs it.

#include <cstdlib>
#include <openssl/crypto.h>

#include "base/secret.h"

namespace kelt::base {

/// Makes OpenSSL take its memory from functions that wipe what is released. To be called before OpenSSL is first used
/// in the process: later calls change nothing, and so do those after the first. The module that the call stands in must
/// stay loaded. Where it came too late OpenSSL works all the same, and what it releases keeps its content.
inline void giveOpenSslWipingMemory() {
  // NOLINTBEGIN(cppcoreguidelines-no-malloc)
  CRYPTO_set_mem_functions([](std::size_t bytes, const char* /*file*/, int /*line*/) { return std::malloc(bytes); },
                           [](void* block, std::size_t bytes, const char* /*file*/, int /*line*/) -> void* {
                             if (bytes != 0) return wipingRealloc(block, bytes);
                             wipingFree(block);
                             return nullptr;
                           },
                           [](void* block, const char* /*file*/, int /*line*/) { wipingFree(block); });
  // NOLINTEND(cppcoreguidelines-no-malloc)
}

}  // namespace kelt::base
