// The entry of the loadable object.

#include "base/console.h"
#include "provision/messages.h"
#include "provision/provision_client.h"
#include "provision/provision_entry.h"

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
