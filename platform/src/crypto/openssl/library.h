#pragma once
// Starting OpenSSL apart from whatever else uses it in this process, and from its environment.

#include <memory>
#include <vector>

#include "crypto/engine.h"
#include "crypto/openssl/handles.h"

namespace kelt::platform {

/// A library context and the providers loaded into it.
struct OpenSslLibrary {
  Context context;
  std::vector<Provider> providers;
  CryptoModule module = CryptoModule::kDefault;
};

/// See CryptoEngine::start. May throw std::bad_alloc.
[[nodiscard]] Result<std::unique_ptr<OpenSslLibrary>> startOpenSsl(bool bFips);

}  // namespace kelt::platform
