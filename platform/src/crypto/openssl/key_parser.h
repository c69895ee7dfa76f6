#pragma once
// Key files: one RSA key, and nothing else.

#include <openssl/types.h>
#include <span>
#include <vector>

#include "base/result.h"
#include "base/secret.h"

namespace kelt::platform {

/// See CryptoEngine::publicKey and secretKey. May throw std::bad_alloc.
[[nodiscard]] Result<std::vector<unsigned char>> parsePublicKey(OSSL_LIB_CTX* context,
                                                                std::span<const unsigned char> file);
[[nodiscard]] Result<base::SecretBytes> parseSecretKey(OSSL_LIB_CTX* context, std::span<const unsigned char> file);

/// See CryptoEngine::keySize.
[[nodiscard]] Result<unsigned> parsedKeySize(OSSL_LIB_CTX* context, bool bSecret, std::span<const unsigned char> file);

}  // namespace kelt::platform
