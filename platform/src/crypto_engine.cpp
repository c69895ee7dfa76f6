#include "crypto_engine.h"

#include <cerrno>
#include <memory>
#include <new>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <utility>

#include "key_parser.h"
#include "openssl_library.h"

namespace kelt::platform {
namespace {

using base::Error;
using base::ErrorKind;
using base::Result;

struct FreeDigest {
  void operator()(EVP_MD* digest) const { EVP_MD_free(digest); }
};

Result<std::vector<unsigned char>> sha256In(OSSL_LIB_CTX* library, std::span<const unsigned char> data) {
  const std::unique_ptr<EVP_MD, FreeDigest> digest(EVP_MD_fetch(library, "SHA2-256", nullptr));
  std::vector<unsigned char> hash(EVP_MAX_MD_SIZE);
  unsigned int length = 0;
  const bool bDone =
      digest != nullptr && EVP_Digest(data.data(), data.size(), hash.data(), &length, digest.get(), nullptr) == 1;
  if (!bDone) return Error{ErrorKind::kSystem, 0, "SHA-256 cannot be computed"};
  hash.resize(length);
  return hash;
}

/// Runs `operation` on the started library. Lets no exception out, and leaves nothing in OpenSSL's error queue, which
/// other users of libcrypto in this process would take for theirs.
template <typename T, typename Operation>
Result<T> guarded(OSSL_LIB_CTX* library, Operation operation) {
  try {
    if (library == nullptr) return Error{ErrorKind::kRefused, 0, "the crypto library is not started"};
    Result<T> result = operation(library);
    ERR_clear_error();
    return result;
  } catch (...) {
    return Error{ErrorKind::kSystem, ENOMEM, "out of memory"};  // short enough to need none
  }
}

class OpenSslEngine final : public CryptoEngine {
 public:
  Result<CryptoModule> start(bool bFips) override {
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
    return guarded<std::vector<unsigned char>>(context(),
                                               [&](OSSL_LIB_CTX* library) { return parsePublicKey(library, file); });
  }

  Result<base::SecretBytes> secretKey(std::span<const unsigned char> file) override {
    return guarded<base::SecretBytes>(context(), [&](OSSL_LIB_CTX* library) { return parseSecretKey(library, file); });
  }

  Result<unsigned> keySize(bool bSecret, std::span<const unsigned char> file) override {
    return guarded<unsigned>(context(), [&](OSSL_LIB_CTX* library) { return parsedKeySize(library, bSecret, file); });
  }

  [[nodiscard]] const char* version() const override { return OpenSSL_version(OPENSSL_VERSION); }

  Result<std::vector<unsigned char>> sha256(std::span<const unsigned char> data) override {
    return guarded<std::vector<unsigned char>>(context(),
                                               [&](OSSL_LIB_CTX* library) { return sha256In(library, data); });
  }

 private:
  [[nodiscard]] OSSL_LIB_CTX* context() const { return m_library ? m_library->context.get() : nullptr; }

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
