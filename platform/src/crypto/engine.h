#pragma once
// OpenSSL 3 behind an interface of values. It is implemented in the loadable object keltconfig-crypto.so, so that only
// runs that touch a key load libcrypto (crypto/engine_loader.h).
//
// The object brings its own copy of the C++ runtime. Across this interface go plain values whose memory is malloc's on
// both sides, and nothing that hangs on the runtime: no exception leaves an operation (no memory left is an Error), and
// neither streams nor locales are used.

#include <span>
#include <vector>

#include "base/result.h"
#include "base/secret.h"

namespace kelt::platform {

/// Which implementation of the algorithms OpenSSL runs on.
enum class CryptoModule {
  kDefault,  ///< its default provider
  kFips,     ///< the system's FIPS provider
};

/// Keys and hashes. In every mode only RSA and SHA-256 are ever asked for.
class CryptoEngine {
 public:
  virtual ~CryptoEngine() = default;

  /// Starts the engine, or starts it anew in another mode. With `bFips` the system's FIPS provider is taken where it
  /// has one that passes its self-test, else the default provider; the result tells which. OpenSSL's configuration file
  /// and the environment variables that name configuration, modules and engines are not consulted: the FIPS provider
  /// comes from OpenSSL's compiled-in module directory, and its parameters from "fipsmodule.cnf" in the compiled-in
  /// configuration directory. Errors: kSystem; the engine is then stopped.
  [[nodiscard]] virtual Result<CryptoModule> start(bool bFips) = 0;

  /// Stops it. Does nothing when it is not started.
  virtual void stop() = 0;

  /// Takes a file that holds exactly one RSA public key, as SubjectPublicKeyInfo or PKCS#1, and gives it as DER
  /// SubjectPublicKeyInfo. The file is one DER structure and nothing else, or one PEM block with nothing but base64 in
  /// it and nothing but blanks and line ends around it. The size of the key is not judged.
  /// Errors: kMalformed, with a sentence that holds nothing of the content; kRefused while the engine is stopped.
  [[nodiscard]] virtual Result<std::vector<unsigned char>> publicKey(std::span<const unsigned char> file) = 0;

  /// The same for a secret key, as PKCS#8 or PKCS#1, given as DER PKCS#8. An encrypted key is refused; nobody is ever
  /// asked for a passphrase.
  [[nodiscard]] virtual Result<base::SecretBytes> secretKey(std::span<const unsigned char> file) = 0;

  /// The size in bits of such a key: of a public one, or with `bSecret` of a secret one. Errors as there.
  [[nodiscard]] virtual Result<unsigned> keySize(bool bSecret, std::span<const unsigned char> file) = 0;

  /// The library's own name and version, for instance "OpenSSL 3.0.17 1 Jul 2025"; does not need to be started.
  [[nodiscard]] virtual const char* version() const = 0;

  /// SHA-256, 32 bytes. Errors: kSystem; kRefused while the engine is stopped.
  [[nodiscard]] virtual Result<std::vector<unsigned char>> sha256(std::span<const unsigned char> data) = 0;
};

/// The name under which the loadable object offers its entry, a CryptoEngineEntry.
inline constexpr const char* kCryptoEngineSymbol = "kelt_crypto_engine";

/// Gives the one engine of the process, which stays to its end; null where there is no memory for it, and the next call
/// tries again.
using CryptoEngineEntry = CryptoEngine* (*)();

}  // namespace kelt::platform

extern "C" __attribute__((visibility("default"))) kelt::platform::CryptoEngine* kelt_crypto_engine();
