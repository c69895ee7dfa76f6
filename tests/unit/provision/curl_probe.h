#pragma once
// Sees how libcurl and the name service are called, on the way to the real ones.

#include <netdb.h>
#include <string>
#include <vector>

namespace kelt::tests {

struct CurlProbe {
  std::vector<std::string> calls;  ///< "init", "OPTION=value", "perform", "cleanup", "global_cleanup", in order
  bool initFails = false;          ///< curl_easy_init then returns null
  addrinfo* addresses = nullptr;   ///< unless null, what every name resolves to
  int freed = 0;                   ///< how often those addresses were given back
};

/// The probe of this program. A test sets it back to {} before it starts.
CurlProbe& curlProbe();

}  // namespace kelt::tests
