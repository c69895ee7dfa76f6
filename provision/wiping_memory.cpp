#include "provision/wiping_memory.h"

#include <cstdlib>
#include <cstring>
#include <curl/curl.h>

#include "base/openssl_memory.h"
#include "base/secret.h"

namespace kelt::provision {

void giveCurlWipingMemory() {
  // Under libcurl, which is its first user in a run that fetches keys and then imports them.
  base::giveOpenSslWipingMemory();
  curl_global_init_mem(CURL_GLOBAL_DEFAULT, std::malloc, base::wipingFree, base::wipingRealloc, ::strdup, std::calloc);
}

}  // namespace kelt::provision
