#include "provision/transfer.h"

#include <curl/curl.h>
#include <new>

#include "base/console.h"
#include "provision/handles.h"
#include "provision/messages.h"
#include "provision/server_address.h"
#include "provision/wiping_memory.h"

namespace kelt::provision {

std::string sB64data;
Reply serverReply(sB64data);

const char* const kPackagePath = "/remote/RepositoryMgmt.PackageManagedAgentFilesCmd.do";

namespace {

/// Sets a text without which the request would be another one. libcurl copies it; without memory it goes on without.
void setText(CURL* curl, CURLoption option, const std::string& text) {
  if (curl_easy_setopt(curl, option, text.c_str()) == CURLE_OUT_OF_MEMORY) throw std::bad_alloc();
}

/// The tables of HTTP/2 keep what a request said, the password of Basic authentication included, in memory that is not
/// taken from ours.
void avoidHttp2(CURL* curl) {
  const auto features = static_cast<unsigned>(curl_version_info(CURLVERSION_NOW)->features);
  if ((features & CURL_VERSION_HTTP2) == 0) return;
  curl_easy_setopt(curl, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
}

/// There is one exchange, so no session is resumed; and libcurl 7.88 releases one twice that it found no memory to
/// keep.
void keepNoSessions(CURL* curl) {
  curl_easy_setopt(curl, CURLOPT_SSL_SESSIONID_CACHE, 0L);
}

/// The server's certificate is not verified, as designed: the device has nothing yet to verify it with.
void setOptions(CURL* curl, const ServerAccess& access) {
  const std::string url = "https://" + access.server + kPackagePath;
  setText(curl, CURLOPT_URL, url);
  curl_easy_setopt(curl, CURLOPT_SSL_VERIFYPEER, 0L);
  curl_easy_setopt(curl, CURLOPT_SSL_VERIFYHOST, 0L);
  // As the server asks: libcurl takes the best that it offers, and sends no password before that.
  curl_easy_setopt(curl, CURLOPT_HTTPAUTH, static_cast<long>(CURLAUTH_ANY));
  curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, Write_Callback);
  setText(curl, CURLOPT_USERNAME, access.user);
  setText(curl, CURLOPT_PASSWORD, access.password);
}

}  // namespace

std::size_t Write_Callback(void* data, std::size_t size, std::size_t count, void* /*userData*/) {
  const std::size_t length = size * count;
  serverReply.add({static_cast<const char*>(data), length});
  return length;
}

Status fetchPackage(const ServerAccess& access, const std::string& host, const std::string& port) {
  base::print(messages::kInitializing);
  Transfer transfer(startCurlOnWipingMemory() ? curl_easy_init() : nullptr);
  if (transfer == nullptr) {
    base::print(messages::kNotInitialized);
    return kNoCurl;
  }
  base::print(messages::kInitialized);
  setOptions(transfer.get(), access);
  setAddressScopeIfRequired(transfer.get(), host, port);
  avoidHttp2(transfer.get());
  keepNoSessions(transfer.get());
  serverReply.reserve();  // growing by copies would take three times the reply's memory for a moment
  base::print(messages::kContacting);
  const CURLcode result = curl_easy_perform(transfer.get());
  transfer.reset();  // with the password in it, before the reply is worked on
  base::print(result == CURLE_OK ? messages::kDone : messages::kFailed);
  return result == CURLE_OK ? kSuccess : kTransferFailed;
}

}  // namespace kelt::provision
