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

/// Bytes in memory, as OpenSSL's readers take them.
using Bio = std::unique_ptr<BIO, ReleaseBy<BIO_free>>;
/// A configuration of our own making, in place of the system's.
using Configuration = std::unique_ptr<CONF, ReleaseBy<NCONF_free>>;
/// What providers are loaded into, apart from whoever else uses OpenSSL in the process.
using Context = std::unique_ptr<OSSL_LIB_CTX, ReleaseBy<OSSL_LIB_CTX_free>>;
/// The way from a key file to a key; Encoder is the way back, to the form in which it is kept.
using Decoder = std::unique_ptr<OSSL_DECODER_CTX, ReleaseBy<OSSL_DECODER_CTX_free>>;
/// An algorithm of one of the context's providers, which must outlive it.
using Digest = std::unique_ptr<EVP_MD, ReleaseBy<EVP_MD_free>>;
using Encoder = std::unique_ptr<OSSL_ENCODER_CTX, ReleaseBy<OSSL_ENCODER_CTX_free>>;
/// A key, public or both halves; OpenSSL wipes the secret numbers in it when it goes.
using Key = std::unique_ptr<EVP_PKEY, ReleaseBy<EVP_PKEY_free>>;
using Number = std::unique_ptr<BIGNUM, ReleaseBy<BN_clear_free>>;  ///< a secret one, wiped
/// Algorithms, loaded into a context, which must outlive it.
using Provider = std::unique_ptr<OSSL_PROVIDER, ReleaseBy<OSSL_PROVIDER_unload>>;

}  // namespace kelt::platform
