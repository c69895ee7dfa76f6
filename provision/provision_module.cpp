// The entry of the loadable object.

#include "base/console.h"
#include "provision/messages.h"
#include "provision/probe_entry.h"
#include "provision/provision_client.h"
#include "provision/provision_entry.h"
#include "provision/server_probe.h"

int kelt_provision_files(const char* directory, const char* server, const char* user, const char* password) noexcept {
  try {
    return kelt::provision::provisionFiles(directory, server, user, password);
  } catch (...) {
    // Nothing throws but a lack of memory. It came between two progress texts or after one; a line of its own is clear.
    kelt::base::print("\n");
    kelt::base::printLine(kelt::provision::messages::kOutOfMemory);
    return kelt::provision::kTransferFailed;
  }
}

void kelt_provision_probe(const char* server, kelt::provision::ProbeSink sink, void* context) noexcept {
  namespace provision = kelt::provision;
  try {
    const provision::ProbeFacts tell = [&](const std::string& name, const std::string& value) {
      sink(context, name.c_str(), value.c_str());
    };
    if (server == nullptr) return tell("libcurl", provision::curlVersion());
    provision::lookAtServer(server, tell);
  } catch (...) {
    sink(context, "failed", "out of memory");
  }
}
