#include "provision/wiping_memory.h"

#include <cstdlib>
#include <cstring>
#include <curl/curl.h>

#include "base/openssl_memory.h"
#include "base/secret.h"

namespace kelt::provision {

bool startCurlOnWipingMemory() {
  // Under libcurl, which is its first user in a run that fetches keys and then imports them.
  base::giveOpenSslWipingMemory();
  // Wiping is for what releases a block or moves it; what only hands one out may be the C library's.
  const CURLcode started = curl_global_init_mem(CURL_GLOBAL_DEFAULT, std::malloc, base::wipingFree, base::wipingRealloc,
                                                ::strdup, std::calloc);
  // libcurl does not ask whether OpenSSL could be started, whose random numbers dereference what is missing then.
  return started == CURLE_OK && OSSL_LIB_CTX_get0_global_default() != nullptr;
}

}  // namespace kelt::provision
