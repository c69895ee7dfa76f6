// A crypto module in the place of a system's FIPS module, of which Debian has none: it starts, and computes nothing.
// With it a test sees what is done with such a module, and that nothing else computes in its stead.

#include <openssl/core.h>
#include <openssl/core_dispatch.h>

extern "C" [[gnu::visibility("default")]] int OSSL_provider_init(const OSSL_CORE_HANDLE* /*handle*/,
                                                                 const OSSL_DISPATCH* /*core*/,
                                                                 const OSSL_DISPATCH** operations, void** context) {
  static const OSSL_DISPATCH kNone[] = {{0, nullptr}};
  *operations = kNone;
  *context = nullptr;
  return 1;
}
