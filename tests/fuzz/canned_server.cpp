#include "fuzz/canned_server.h"

#include <algorithm>
#include <cstdarg>
#include <curl/curl.h>
#include <dlfcn.h>
#include <netdb.h>

using kelt::tests::cannedServer;

namespace kelt::tests {

CannedServer& cannedServer() {
  static CannedServer server;
  return server;
}

}  // namespace kelt::tests

namespace {

using Write = std::size_t (*)(void*, std::size_t, std::size_t, void*);
Write takeReply = nullptr;
char handle = 0;  // its address is the handle

void handOver(std::string& reply, std::size_t piece) {
  for (std::size_t at = 0; at < reply.size(); at += piece)
    takeReply(reply.data() + at, 1, std::min(piece, reply.size() - at), nullptr);
}

}  // namespace

#ifdef __clang__
// The signature is libcurl's: the argument before the others is an enumeration, which clang would not have there.
#pragma clang diagnostic ignored "-Wvarargs"
#endif

// These stand before the library's own for whatever this program links statically.
extern "C" {

CURLcode curl_global_init_mem(long /*flags*/, curl_malloc_callback, curl_free_callback, curl_realloc_callback,
                              curl_strdup_callback, curl_calloc_callback) {
  return CURLE_OK;
}

CURL* curl_easy_init() {
  return &handle;
}

CURLcode curl_easy_setopt(CURL* /*handle*/, CURLoption option, ...) {
  va_list arguments;
  va_start(arguments, option);
  if (option == CURLOPT_URL) cannedServer().url = va_arg(arguments, const char*);
  if (option == CURLOPT_ADDRESS_SCOPE) cannedServer().scope = va_arg(arguments, long);
  if (option == CURLOPT_WRITEFUNCTION) takeReply = va_arg(arguments, Write);
  va_end(arguments);
  return CURLE_OK;
}

CURLcode curl_easy_perform(CURL* /*handle*/) {
  kelt::tests::CannedServer& server = cannedServer();
  if (!server.bReachable) return CURLE_COULDNT_CONNECT;
  handOver(server.reply, server.piece == 0 ? server.reply.size() : server.piece);
  return CURLE_OK;
}

void curl_easy_cleanup(CURL* /*handle*/) {}

void curl_global_cleanup() {}

int getaddrinfo(const char* host, const char* service, const addrinfo* hints, addrinfo** result) {
  static const auto real = reinterpret_cast<decltype(&getaddrinfo)>(::dlsym(RTLD_NEXT, "getaddrinfo"));
  addrinfo numeric = *hints;
  numeric.ai_flags |= AI_NUMERICHOST | AI_NUMERICSERV;
  return real(host, service, &numeric, result);
}

}  // extern "C"
