#pragma once
// Starting OpenSSL apart from whatever else uses it in this process, and from its environment.

#include <memory>
#include <vector>

#include "crypto/engine.h"
#include "crypto/openssl/handles.h"

namespace kelt::platform {

/// OpenSSL, started: a context of its own, and the providers loaded into it, which go before it.
struct OpenSslLibrary {
  Context context;
  std::vector<Provider> providers;
  CryptoModule module = CryptoModule::kDefault;
};

/// Starts OpenSSL as CryptoEngine::start promises: on the system's FIPS provider where `bFips` asks for it and there is
/// one that passes its self-test, else on the default provider; `module` tells which. The first call sees
/// to it that OpenSSL reads no configuration and wipes the memory that it gives back, where nothing in the process has
/// used it before. Errors: kSystem, with nothing left started. May throw std::bad_alloc.
[[nodiscard]] Result<std::unique_ptr<OpenSslLibrary>> startOpenSsl(bool bFips);

}  // namespace kelt::platform
