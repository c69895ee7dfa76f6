#include "curl_probe.h"

#include <cstdarg>
#include <curl/curl.h>
#include <dlfcn.h>

namespace kelt::tests {

CurlProbe& curlProbe() {
  static CurlProbe probe;
  return probe;
}

namespace {

template <typename Function>
Function* next(Function* /*like*/, const char* name) {
  return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

void note(const std::string& call) {
  curlProbe().calls.push_back(call);
}

std::string shown(CURLoption option, void* value) {
  if (option == CURLOPT_URL || option == CURLOPT_USERNAME) return static_cast<const char*>(value);
  return "...";  // a password is not kept, so that memory can be searched for it
}

}  // namespace
}  // namespace kelt::tests

using kelt::tests::curlProbe;
using kelt::tests::next;
using kelt::tests::note;

// These stand before the library's own for whatever this program links statically.
extern "C" {

CURL* curl_easy_init() {
  note("init");
  return curlProbe().initFails ? nullptr : next(&curl_easy_init, "curl_easy_init")();
}

CURLcode curl_easy_setopt(CURL* handle, CURLoption option, ...) {
  const std::string name = curl_easy_option_by_id(option)->name;
  va_list arguments;
  va_start(arguments, option);
  CURLcode result = CURLE_OK;
  if (option < CURLOPTTYPE_OBJECTPOINT) {
    const long value = va_arg(arguments, long);
    note(name + "=" + std::to_string(value));
    result = next(&curl_easy_setopt, "curl_easy_setopt")(handle, option, value);
  } else {
    void* value = va_arg(arguments, void*);
    note(name + "=" + kelt::tests::shown(option, value));
    result = next(&curl_easy_setopt, "curl_easy_setopt")(handle, option, value);
  }
  va_end(arguments);
  return result;
}

CURLcode curl_global_init_mem(long flags, curl_malloc_callback m, curl_free_callback f, curl_realloc_callback r,
                              curl_strdup_callback s, curl_calloc_callback c) {
  curlProbe().memory = {m, f, r};
  return next(&curl_global_init_mem, "curl_global_init_mem")(flags, m, f, r, s, c);
}

CURLcode curl_easy_perform(CURL* handle) {
  note("perform");
  return next(&curl_easy_perform, "curl_easy_perform")(handle);
}

void curl_easy_cleanup(CURL* handle) {
  note("cleanup");
  next(&curl_easy_cleanup, "curl_easy_cleanup")(handle);
}

void curl_global_cleanup() {
  note("global_cleanup");
  next(&curl_global_cleanup, "curl_global_cleanup")();
}

int getaddrinfo(const char* host, const char* service, const addrinfo* hints, addrinfo** result) {
  if (curlProbe().firstLookup.empty() && host != nullptr && service != nullptr) {
    curlProbe().firstLookup = std::string(host) + " " + service;
  }
  if (curlProbe().addresses == nullptr) return next(&getaddrinfo, "getaddrinfo")(host, service, hints, result);
  *result = curlProbe().addresses;
  return 0;
}

void freeaddrinfo(addrinfo* list) {
  if (list != nullptr && list == curlProbe().addresses) {
    ++curlProbe().freed;
  } else {
    next(&freeaddrinfo, "freeaddrinfo")(list);
  }
}

}  // extern "C"
