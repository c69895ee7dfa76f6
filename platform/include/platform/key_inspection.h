#pragma once
// Looking into a key store and at keys, with the reason where something is not as it should be. Nothing here changes
// anything, and nothing is logged. What is judged is judged for the user `owner`, as whom the agent's tools run.

#include <span>
#include <string>
#include <sys/types.h>

#include "base/result.h"
#include "base/secret.h"
#include "platform/crypto.h"

namespace kelt::platform {

/// The mode and key size that the agent runs in (KeyConf).
struct KeyRecord {
  quorvane_com::QV::crypto::Mode mode = quorvane_com::QV::crypto::Mode::kNonFips;
  quorvane_com::QV::crypto::KeySize keySize = quorvane_com::QV::crypto::KeySize::kLower;
};

/// The record in the key store at `store`. Errors: kNotFound; kRefused, by what the library would not read it by;
/// kMalformed; kSystem.
[[nodiscard]] Result<KeyRecord> inspectKeyRecord(const std::string& store, uid_t owner);

/// Whether keys can be read from and stored into the key store at `store`. Errors: kNotFound, where the first import
/// makes it; kRefused; kSystem.
[[nodiscard]] Status inspectKeyStore(const std::string& store, uid_t owner);

/// The key of that type in the key store, in the form in which it is kept. Errors as inspectKeyRecord, and kTooLarge.
[[nodiscard]] Result<base::SecretBytes> inspectStoredKey(const std::string& store,
                                                         quorvane_com::QV::crypto::KeyType type, uid_t owner);

/// The path of such a key.
[[nodiscard]] std::string storedKeyPath(const std::string& store, quorvane_com::QV::crypto::KeyType type);

/// What a key file holds.
struct KeyFacts {
  unsigned bits = 0;   ///< of its modulus
  std::string sha256;  ///< of a public key as DER SubjectPublicKeyInfo, upper-case digits; empty for a secret one
};

/// The crypto library, loaded and started for looking at keys.
class KeyInspector {
 public:
  /// Loads and starts it, in FIPS mode where that is asked for. Errors as base::loadModuleSymbol; kSystem.
  [[nodiscard]] static Result<KeyInspector> start(bool bFips);

  /// Whether FIPS mode was asked for, and the system has a FIPS provider for it.
  [[nodiscard]] bool bFipsProvider() const { return m_bFipsProvider; }

  /// Name and version of the library.
  [[nodiscard]] std::string version() const;

  /// Looks at the content of a key file as an import does. Errors: kMalformed; kSystem.
  [[nodiscard]] Result<KeyFacts> publicKey(std::span<const unsigned char> file) const;
  [[nodiscard]] Result<KeyFacts> secretKey(std::span<const unsigned char> file) const;

 private:
  KeyInspector(void* engine, bool bFipsProvider) : m_engine(engine), m_bFipsProvider(bFipsProvider) {}

  void* m_engine;  ///< the library's own, which stays to the end of the process
  bool m_bFipsProvider;
};

}  // namespace kelt::platform
