#include "provision/server_probe.h"

#include <array>
#include <curl/curl.h>
#include <netdb.h>

#include "platform/network_util.h"
#include "provision/handles.h"
#include "provision/server_address.h"
#include "provision/server_certificate.h"
#include "provision/transfer.h"
#include "provision/wiping_memory.h"

namespace kelt::provision {
namespace {

constexpr long kPatienceMilliseconds = 5000;
constexpr const char* kDefaultPort = "8443";

/// What the callbacks of one exchange share. They run inside a C library: none of them lets an exception out.
struct Exchange {
  CURL* curl = nullptr;
  const ProbeFacts& tell;
};

void tellTls(const Exchange& exchange) {
  curl_tlssessioninfo* session = nullptr;
  if (curl_easy_getinfo(exchange.curl, CURLINFO_TLS_SSL_PTR, &session) != CURLE_OK || session == nullptr) return;
  // With another library the pointer leads to something else.
  if (session->backend != CURLSSLBACKEND_OPENSSL || session->internals == nullptr) return;
  tellConnection(session->internals, exchange.tell);
}

/// Called once the connection is there, before anything is asked.
int onConnected(void* context, char* address, char* /*local*/, int /*port*/, int /*localPort*/) {
  try {
    auto& exchange = *static_cast<Exchange*>(context);
    exchange.tell("connected", address);
    tellTls(exchange);
    return CURL_PREREQFUNC_OK;
  } catch (...) {
    return CURL_PREREQFUNC_ABORT;
  }
}

/// The answer's body is nobody's business: the exchange ends where it begins.
std::size_t onBody(const void* /*data*/, std::size_t /*size*/, std::size_t /*count*/, void* /*context*/) {
  return 0;
}

/// Returns whether there is an address.
bool tellAddresses(const std::string& host, const std::string& port, const ProbeFacts& tell) {
  tell("resolving", host);
  addrinfo* found = nullptr;
  const int failure = ANetworkUtil().qveCreateAddrinfo(host, port, &found, false);
  if (failure != 0) {
    tell("unresolved", ::gai_strerror(failure));
    return false;
  }
  const Addresses list(found);
  for (const addrinfo* entry = found; entry != nullptr; entry = entry->ai_next) {
    std::array<char, NI_MAXHOST> text{};
    if (::getnameinfo(entry->ai_addr, entry->ai_addrlen, text.data(), text.size(), nullptr, 0, NI_NUMERICHOST) != 0)
      continue;
    tell("address", text.data());
    unsigned int scope = 0;
    if (entry->ai_family == AF_INET6 && ANetworkUtil().qveGetScopeId(text.data(), scope) != 0)
      tell("scope", std::to_string(scope));
  }
  return true;
}

void setOptions(Exchange& exchange, const std::string& url, std::array<char, CURL_ERROR_SIZE>& reason) {
  CURL* const curl = exchange.curl;
  curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
  // Not verified, as the exchange itself does not: what is shown is what that would meet.
  curl_easy_setopt(curl, CURLOPT_SSL_VERIFYPEER, 0L);
  curl_easy_setopt(curl, CURLOPT_SSL_VERIFYHOST, 0L);
  // lookAtServer stops at an "@" by itself; this is for an address that libcurl reads otherwise.
  curl_easy_setopt(curl, CURLOPT_DISALLOW_USERNAME_IN_URL, 1L);
  // Its time-outs without SIGALRM, which is for the whole process.
  curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, kPatienceMilliseconds);
  curl_easy_setopt(curl, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
  curl_easy_setopt(curl, CURLOPT_SSL_SESSIONID_CACHE, 0L);
  curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, reason.data());
  curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, onBody);
  curl_easy_setopt(curl, CURLOPT_PREREQFUNCTION, onConnected);
  curl_easy_setopt(curl, CURLOPT_PREREQDATA, &exchange);
}

/// Whether libcurl could do what a server offers as Negotiate; it would try that first.
bool bNegotiates() {
  const auto features = static_cast<unsigned>(curl_version_info(CURLVERSION_NOW)->features);
  return (features & CURL_VERSION_SPNEGO) != 0;
}

void tellOffers(CURL* curl, const ProbeFacts& tell) {
  long offers = 0;
  curl_easy_getinfo(curl, CURLINFO_HTTPAUTH_AVAIL, &offers);
  const auto kinds = static_cast<unsigned long>(offers);
  if ((kinds & CURLAUTH_NEGOTIATE) != 0) tell("offers", "Negotiate");
  if ((kinds & CURLAUTH_NTLM) != 0) tell("offers", "NTLM");
  if ((kinds & CURLAUTH_DIGEST) != 0) tell("offers", "Digest");
  if ((kinds & CURLAUTH_BASIC) != 0) tell("offers", "Basic");
  if ((kinds & CURLAUTH_NEGOTIATE) != 0 && bNegotiates()) tell("negotiate", "yes");
}

void exchangeWith(const std::string& url, const std::string& host, const std::string& port, const ProbeFacts& tell) {
  tell("connecting", host);
  // As for a transfer: no credentials of the server are in it, but a proxy's may be.
  const Transfer transfer(startCurlOnWipingMemory() ? curl_easy_init() : nullptr);
  if (transfer == nullptr) return tell("failed", "libcurl could not be started");
  Exchange exchange{transfer.get(), tell};
  std::array<char, CURL_ERROR_SIZE> reason{};
  setOptions(exchange, url, reason);
  setAddressScopeIfRequired(transfer.get(), host, port);
  const CURLcode result = curl_easy_perform(transfer.get());
  long status = 0;
  curl_easy_getinfo(transfer.get(), CURLINFO_RESPONSE_CODE, &status);
  // The body was not taken: that is no failure.
  const bool bAnswered = status != 0 && (result == CURLE_OK || result == CURLE_WRITE_ERROR);
  if (!bAnswered) return tell("failed", reason.front() != '\0' ? reason.data() : curl_easy_strerror(result));
  tell("status", std::to_string(status));
  tellOffers(transfer.get(), tell);
}

}  // namespace

std::string curlVersion() {
  return curl_version_info(CURLVERSION_NOW)->version;
}

void lookAtServer(const std::string& server, const ProbeFacts& tell) {
  std::string host;
  std::string port;
  std::string address = server;
  if (!split_host_and_port(server, host, port)) {
    // A literal in brackets has been put there even without a port.
    if (host.empty()) host = server;
    port = kDefaultPort;
    address.append(":").append(port);
  }
  tell("libcurl", curlVersion());
  tell("host", host);
  tell("port", port);
  // What stands before it may be a password, which nobody is to be sent.
  if (server.find('@') != std::string::npos) return tell("user-in-address", "yes");
  // The exchange is tried without an address as well: a proxy looks the name up by itself.
  static_cast<void>(tellAddresses(host, port, tell));
  exchangeWith("https://" + address + kPackagePath, host, port, tell);
}

}  // namespace kelt::provision
