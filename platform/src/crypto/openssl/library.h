#pragma once
// Starting OpenSSL apart from whatever else uses it in this process, and from its environment.

#include <memory>
#include <openssl/crypto.h>
#include <openssl/provider.h>
#include <vector>

#include "crypto/engine.h"

namespace kelt::platform {

struct FreeLibrary {
  void operator()(OSSL_LIB_CTX* context) const { OSSL_LIB_CTX_free(context); }
};
struct UnloadProvider {
  void operator()(OSSL_PROVIDER* provider) const { OSSL_PROVIDER_unload(provider); }
};

/// A library context and the providers loaded into it.
struct OpenSslLibrary {
  std::unique_ptr<OSSL_LIB_CTX, FreeLibrary> context;
  std::vector<std::unique_ptr<OSSL_PROVIDER, UnloadProvider>> providers;
  CryptoModule module = CryptoModule::kDefault;
};

/// See CryptoEngine::start. May throw std::bad_alloc.
[[nodiscard]] base::Result<std::unique_ptr<OpenSslLibrary>> startOpenSsl(bool bFips);

}  // namespace kelt::platform
