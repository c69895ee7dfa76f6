#pragma once
// Sees how libcurl and the name service are called, on the way to the real ones.

#include <curl/curl.h>
#include <netdb.h>
#include <string>
#include <vector>

namespace kelt::tests {

/// The memory functions that libcurl was given; null until then.
struct CurlMemoryFunctions {
  curl_malloc_callback malloc = nullptr;
  curl_free_callback free = nullptr;
  curl_realloc_callback realloc = nullptr;
};

struct CurlProbe {
  std::vector<std::string> calls;  ///< "init", "OPTION=value", "perform", "cleanup", "global_cleanup", in order
  bool initFails = false;          ///< curl_easy_init then returns null
  addrinfo* addresses = nullptr;   ///< unless null, what every name resolves to
  std::string firstLookup;         ///< host and port of the first look-up, separated by a blank
  CurlMemoryFunctions memory;
  int freed = 0;  ///< how often those addresses were given back
};

/// The probe of this program. A test sets it back to {} before it starts.
CurlProbe& curlProbe();

}  // namespace kelt::tests
