#pragma once
// Loads the engine on first use.

#include "crypto_engine.h"

namespace kelt::platform {

/// The engine of this process, not started. Loads keltconfig-crypto.so, and libcrypto with it, the first time; after a
/// failure the next call tries again. Errors as base::loadModuleSymbol.
[[nodiscard]] base::Result<CryptoEngine*> loadCryptoEngine();

}  // namespace kelt::platform
