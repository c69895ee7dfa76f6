#include "platform/key_inspection.h"

#include <utility>

#include "crypto/engine_loader.h"
#include "crypto/key_store.h"

#include "base/hex.h"

namespace kelt::platform {
namespace {

/// The public header names no engine, so that whoever looks at keys does not see this room.
CryptoEngine& engineAt(void* engine) {
  return *static_cast<CryptoEngine*>(engine);
}

Result<KeyFacts> publicFacts(CryptoEngine& engine, std::span<const unsigned char> file) {
  const auto bits = engine.keySize(false, file);
  if (!bits) return bits.error();
  // In the form in which it is kept: the agent's configuration has the hash of that.
  const auto key = engine.publicKey(file);
  if (!key) return key.error();
  const auto hash = engine.sha256(key.value());
  if (!hash) return hash.error();
  return KeyFacts{bits.value(), base::hexDigits(hash.value())};
}

Result<KeyFacts> secretFacts(CryptoEngine& engine, std::span<const unsigned char> file) {
  const auto bits = engine.keySize(true, file);
  if (!bits) return bits.error();
  // As an import does, which writes the key anew, and refuses one that cannot be.
  if (const auto key = engine.secretKey(file); !key) return key.error();
  return KeyFacts{bits.value(), {}};
}

/// Once more where the first look says no: where OpenSSL lacks memory, it calls a sound key malformed.
template <typename Look>
Result<KeyFacts> lookedTwice(Look look) {
  auto first = look();
  return first ? std::move(first) : look();
}

}  // namespace

Status inspectKeyStore(const std::string& store, uid_t owner) {
  return judgeKeyStore(store, owner);
}

Result<base::SecretBytes> inspectStoredKey(const std::string& store, quorvane_com::QV::crypto::KeyType type,
                                           uid_t owner) {
  return readStoredAsItIs(store, storedName(type), kMaxKeyFileSize, owner);
}

std::string storedKeyPath(const std::string& store, quorvane_com::QV::crypto::KeyType type) {
  return store + "/" + storedName(type);
}

Result<KeyInspector> KeyInspector::start(bool bFips) {
  const auto engine = loadCryptoEngine();
  if (!engine) return engine.error();
  const auto module = engine.value()->start(bFips);
  if (!module) return module.error();
  return KeyInspector(engine.value(), module.value() == CryptoModule::kFips);
}

std::string KeyInspector::version() const {
  return engineAt(m_engine).version();
}

Result<KeyFacts> KeyInspector::publicKey(std::span<const unsigned char> file) const {
  return lookedTwice([&] { return publicFacts(engineAt(m_engine), file); });
}

Result<KeyFacts> KeyInspector::secretKey(std::span<const unsigned char> file) const {
  return lookedTwice([&] { return secretFacts(engineAt(m_engine), file); });
}

}  // namespace kelt::platform
