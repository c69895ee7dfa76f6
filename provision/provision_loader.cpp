// The part of provisioning that every run has: loading the rest.

#include <sys/prctl.h>

#include "base/console.h"
#include "base/module_loader.h"
#include "platform/astring.h"
#include "platform/refusals.h"
#include "provision/messages.h"
#include "provision/provision.h"
#include "provision/provision_entry.h"
#include "provision/status.h"

namespace kelt::provision {

int Provision::iGetProvisionFiles(const std::wstring& dir, const std::string& server, const std::string& user,
                                  const std::string& password) {
  // The password is held from here to the end of the run, by the callers' records too: no core dump, no debugger of the
  // same user. Started commands are dumpable again.
  ::prctl(PR_SET_DUMPABLE, 0);
  const auto entry = base::loadModuleSymbol("provision", kProvisionEntry);
  if (!entry) {
    platform::logRefusal(entry.error());
    // As where libcurl itself cannot be set up, which scripts know; the reason follows on a line of its own.
    base::print(messages::kInitializing);
    base::print(messages::kNotInitialized);
    base::print("\n" + std::string(messages::kNotLoadable) + entry.error().message + "\n");
    return kNoCurl;
  }
  const std::string directory = quorvane_com::orv::tellcomn_wide_to_ansi(dir);
  const auto provisionFiles = reinterpret_cast<ProvisionEntry>(entry.value());
  return provisionFiles(directory.c_str(), server.c_str(), user.c_str(), password.c_str());
}

}  // namespace kelt::provision
