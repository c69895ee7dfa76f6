#pragma once
// The seam of the look at a management server, in the loadable object keltconfig-provision.so. No exception crosses it.

namespace kelt::provision {

/// Takes one fact as it is found: its name and its value, UTF-8 or whatever bytes the server sent.
/// Both texts are the caller's and last for the call only; `context` is what the entry was given.
using ProbeSink = void (*)(void* context, const char* name, const char* value);

/// The name that the binary looks up (base/module_loader.h), and the type of what it finds. Both sides are of one
/// build.
inline constexpr const char* kProbeEntry = "kelt_provision_probe";
using ProbeEntry = void (*)(const char* server, ProbeSink sink, void* context);

}  // namespace kelt::provision

/// See kelt::provision::probeServer. With a null `server`, tells the version of libcurl and does nothing else.
extern "C" __attribute__((visibility("default"))) void kelt_provision_probe(const char* server,
                                                                            kelt::provision::ProbeSink sink,
                                                                            void* context) noexcept;
