#pragma once
// Loads the engine on first use.

#include "crypto/engine.h"

namespace kelt::platform {

/// The engine of this process, not started. Loads keltconfig-crypto.so, and libcrypto with it, the first time; after a
/// failure the next call tries again. Errors as base::loadModuleSymbol and engineFrom.
[[nodiscard]] Result<CryptoEngine*> loadCryptoEngine();

/// The engine that the object's entry gives, never null. Errors: kSystem where it found no memory for one.
[[nodiscard]] Result<CryptoEngine*> engineFrom(CryptoEngineEntry entry);

}  // namespace kelt::platform
