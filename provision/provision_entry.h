#pragma once
// The seam between the binary and the loadable object keltconfig-provision.so. No exception crosses it.

namespace kelt::provision {

inline constexpr const char* kProvisionEntry = "kelt_provision_files";
using ProvisionEntry = int (*)(const wchar_t* dir, const char* server, const char* user, const char* password);

}  // namespace kelt::provision

/// Provision::iGetProvisionFiles with its texts as zero-terminated strings.
extern "C" __attribute__((visibility("default"))) int kelt_provision_files(const wchar_t* dir, const char* server,
                                                                           const char* user,
                                                                           const char* password) noexcept;
