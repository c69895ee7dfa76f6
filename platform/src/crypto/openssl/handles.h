#pragma once
// Ownership of what OpenSSL allocates: each pointer is released by the function that OpenSSL has for its type, and null
// where OpenSSL had no memory.

#include <memory>
#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/conf.h>
#include <openssl/crypto.h>
#include <openssl/decoder.h>
#include <openssl/encoder.h>
#include <openssl/evp.h>
#include <openssl/provider.h>

namespace kelt::platform {

/// Releases an object by `kRelease`, OpenSSL's function for its type; what that returns is of no use then.
template <auto kRelease>
struct ReleaseBy {
  template <typename Object>
  void operator()(Object* object) const {
    static_cast<void>(kRelease(object));
  }
};

using Bio = std::unique_ptr<BIO, ReleaseBy<BIO_free>>;
using Configuration = std::unique_ptr<CONF, ReleaseBy<NCONF_free>>;
using Context = std::unique_ptr<OSSL_LIB_CTX, ReleaseBy<OSSL_LIB_CTX_free>>;
using Decoder = std::unique_ptr<OSSL_DECODER_CTX, ReleaseBy<OSSL_DECODER_CTX_free>>;
using Digest = std::unique_ptr<EVP_MD, ReleaseBy<EVP_MD_free>>;
using Encoder = std::unique_ptr<OSSL_ENCODER_CTX, ReleaseBy<OSSL_ENCODER_CTX_free>>;
using Key = std::unique_ptr<EVP_PKEY, ReleaseBy<EVP_PKEY_free>>;
using Number = std::unique_ptr<BIGNUM, ReleaseBy<BN_clear_free>>;  ///< a secret one, wiped
using Provider = std::unique_ptr<OSSL_PROVIDER, ReleaseBy<OSSL_PROVIDER_unload>>;

}  // namespace kelt::platform
