#pragma once
// Ownership of what libcurl and the C library allocate for an exchange.

#include <curl/curl.h>
#include <memory>
#include <netdb.h>

namespace kelt::provision {

/// Ends a transfer: the handle, which holds the password, and what libcurl holds for all of them, as there is one
/// transfer at a time.
struct EndTransfer {
  void operator()(CURL* curl) const {
    curl_easy_cleanup(curl);
    curl_global_cleanup();
  }
};
using Transfer = std::unique_ptr<CURL, EndTransfer>;

/// Releases the addresses that ANetworkUtil::qveCreateAddrinfo has found.
struct FreeAddresses {
  void operator()(addrinfo* list) const { ::freeaddrinfo(list); }
};
using Addresses = std::unique_ptr<addrinfo, FreeAddresses>;

}  // namespace kelt::provision
