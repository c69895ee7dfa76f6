#include "crypto/engine.h"

#include <cerrno>
#include <memory>
#include <new>
#include <openssl/err.h>
#include <utility>

#include "crypto/openssl/handles.h"
#include "crypto/openssl/key_parser.h"
#include "crypto/openssl/library.h"

namespace kelt::platform {
namespace {

Result<std::vector<unsigned char>> sha256In(OSSL_LIB_CTX* context, std::span<const unsigned char> data) {
  // From this context, so that in FIPS mode it is the one of the FIPS provider.
  const Digest digest(EVP_MD_fetch(context, "SHA2-256", nullptr));
  std::vector<unsigned char> hash(EVP_MAX_MD_SIZE);
  unsigned int length = 0;
  const bool bDone =
      digest != nullptr && EVP_Digest(data.data(), data.size(), hash.data(), &length, digest.get(), nullptr) == 1;
  if (!bDone) return Error{ErrorKind::kSystem, 0, "SHA-256 cannot be computed"};
  hash.resize(length);
  return hash;
}

/// Runs `operation` in the context of a started OpenSSL. Lets no exception out, and leaves nothing in OpenSSL's error
/// queue, which other users of libcrypto in this process would take for theirs.
template <typename T, typename Operation>
Result<T> guarded(OSSL_LIB_CTX* context, Operation operation) {
  try {
    if (context == nullptr) return Error{ErrorKind::kRefused, 0, "OpenSSL is not started"};
    Result<T> result = operation(context);
    ERR_clear_error();
    return result;
  } catch (...) {
    return Error{ErrorKind::kSystem, ENOMEM, "out of memory"};  // short enough to need none
  }
}

class OpenSslEngine final : public CryptoEngine {
 public:
  Result<CryptoModule> start(bool bFips) override {
    // First, so that one that does not start leaves none running, in the mode before for instance.
    stop();
    try {
      auto started = startOpenSsl(bFips);
      ERR_clear_error();
      if (!started) return started.error();
      m_library = std::move(started).value();
      return m_library->module;
    } catch (...) {
      return Error{ErrorKind::kSystem, ENOMEM, "out of memory"};
    }
  }

  void stop() override { m_library.reset(); }

  Result<std::vector<unsigned char>> publicKey(std::span<const unsigned char> file) override {
    return guarded<std::vector<unsigned char>>(startedContext(),
                                               [&](OSSL_LIB_CTX* context) { return parsePublicKey(context, file); });
  }

  Result<base::SecretBytes> secretKey(std::span<const unsigned char> file) override {
    return guarded<base::SecretBytes>(startedContext(),
                                      [&](OSSL_LIB_CTX* context) { return parseSecretKey(context, file); });
  }

  Result<unsigned> keySize(bool bSecret, std::span<const unsigned char> file) override {
    return guarded<unsigned>(startedContext(),
                             [&](OSSL_LIB_CTX* context) { return parsedKeySize(context, bSecret, file); });
  }

  [[nodiscard]] const char* version() const override { return OpenSSL_version(OPENSSL_VERSION); }

  Result<std::vector<unsigned char>> sha256(std::span<const unsigned char> data) override {
    return guarded<std::vector<unsigned char>>(startedContext(),
                                               [&](OSSL_LIB_CTX* context) { return sha256In(context, data); });
  }

 private:
  /// Null while stopped.
  [[nodiscard]] OSSL_LIB_CTX* startedContext() const { return m_library ? m_library->context.get() : nullptr; }

  std::unique_ptr<OpenSslLibrary> m_library;
};

}  // namespace
}  // namespace kelt::platform

kelt::platform::CryptoEngine* kelt_crypto_engine() {
  // Never destroyed: OpenSSL clears itself up at exit, in an order that nobody here knows.
  static kelt::platform::CryptoEngine* engine = nullptr;
  if (engine == nullptr) engine = new (std::nothrow) kelt::platform::OpenSslEngine;
  return engine;
}
