#include "crypto/engine_loader.h"

#include <cerrno>

#include "base/module_loader.h"

namespace kelt::platform {

Result<CryptoEngine*> engineFrom(CryptoEngineEntry entry) {
  CryptoEngine* const engine = entry();
  if (engine == nullptr) return Error{ErrorKind::kSystem, ENOMEM, "out of memory"};
  return engine;
}

Result<CryptoEngine*> loadCryptoEngine() {
  static CryptoEngine* loaded = nullptr;
  if (loaded != nullptr) return loaded;
  const auto symbol = base::loadModuleSymbol("crypto", kCryptoEngineSymbol);
  if (!symbol) return symbol.error();
  auto engine = engineFrom(reinterpret_cast<CryptoEngineEntry>(symbol.value()));
  // A failure is not kept: there may be memory for it the next time.
  if (engine) loaded = engine.value();
  return engine;
}

}  // namespace kelt::platform
