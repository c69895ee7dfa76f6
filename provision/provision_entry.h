#pragma once
// The seam between the binary and the loadable object keltconfig-provision.so. No exception crosses it.

namespace kelt::provision {

/// The name that the binary looks up (base/module_loader.h), and the type of what it finds. Both sides are of one
/// build.
inline constexpr const char* kProvisionEntry = "kelt_provision_files";
using ProvisionEntry = int (*)(const char* directory, const char* server, const char* user, const char* password);

}  // namespace kelt::provision

/// Provision::iGetProvisionFiles with its texts as zero-terminated strings, UTF-8 all of them. Returns its status;
/// kTransferFailed, with a line on the console, where there is no memory.
extern "C" __attribute__((visibility("default"))) int kelt_provision_files(const char* directory, const char* server,
                                                                           const char* user,
                                                                           const char* password) noexcept;
