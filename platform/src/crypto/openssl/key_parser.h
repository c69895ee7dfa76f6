#pragma once
// Key files: one RSA key, and nothing else.

#include <openssl/types.h>
#include <span>
#include <vector>

#include "base/result.h"
#include "base/secret.h"

namespace kelt::platform {

/// The key in `file` as CryptoEngine::publicKey gives it: exactly one RSA public key, in DER or in one PEM block, with
/// nothing before or after it that would go unread. `context` is that of a started OpenSSL (crypto/openssl/library.h).
/// Errors: kMalformed, with a sentence that holds nothing of the content. OpenSSL's error queue is left as it comes.
/// May throw std::bad_alloc.
[[nodiscard]] Result<std::vector<unsigned char>> parsePublicKey(OSSL_LIB_CTX* context,
                                                                std::span<const unsigned char> file);

/// The same for a secret key, as CryptoEngine::secretKey gives it; an encrypted one is refused. What OpenSSL held of it
/// is wiped.
[[nodiscard]] Result<base::SecretBytes> parseSecretKey(OSSL_LIB_CTX* context, std::span<const unsigned char> file);

/// See CryptoEngine::keySize.
[[nodiscard]] Result<unsigned> parsedKeySize(OSSL_LIB_CTX* context, bool bSecret, std::span<const unsigned char> file);

}  // namespace kelt::platform
