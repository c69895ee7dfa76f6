#include "crypto_loader.h"

#include "base/module_loader.h"

namespace kelt::platform {

base::Result<CryptoEngine*> loadCryptoEngine() {
  static CryptoEngine* loaded = nullptr;
  if (loaded != nullptr) return loaded;
  const auto symbol = base::loadModuleSymbol("crypto", kCryptoEngineSymbol);
  if (!symbol) return symbol.error();
  loaded = reinterpret_cast<CryptoEngineEntry>(symbol.value())();
  return loaded;
}

}  // namespace kelt::platform
