#pragma once
// The root file system that unit tests run on, made of memory and of what they read of the machine.

#include <string>

namespace kelt::tests {

/// Where the private root has the directory of the test programs, and tests/data (KELT_TEST_DATA): outside of all
/// directories of a device, wherever the checkout lies. The rest of the checkout is not there at all.
inline constexpr const char* kPrivateBuild = "/checkout/build";
inline constexpr const char* kPrivateData = "/checkout/data";
inline constexpr const char* kPrivateProfiles = "/checkout/profiles";

/// Whether this process runs on a private root already.
[[nodiscard]] bool bOnPrivateRoot();

/// What a private root is made for.
struct RootPlan {
  std::string buildDirectory;  ///< of the test programs
  std::string dataDirectory;   ///< tests/data
  std::string profiles;        ///< where a program built for coverage leaves its counts; empty without
  bool bOwnProcesses = false;  ///< this process is the first of a process namespace, which gets a /proc of its own
};

/// Changes this process, which has a mount namespace of its own, over to a new root in memory: the machine's programs
/// and libraries, and what the plan names, are there read-only with all that is mounted below them; /dev has the
/// harmless devices and terminals of its own. Nothing of the machine can be changed from there but the profiles. False
/// when the system refuses a /proc for the process namespace, with nothing done; ends the process with a message and
/// status 99 when it refuses anything else.
[[nodiscard]] bool enterPrivateRoot(const RootPlan& plan);

/// Puts new, empty file systems in memory in the places of the device: /etc (with links to what programs need of the
/// machine's, and an empty orv.d), /opt (with an empty Quorvane), /run and /tmp, with whatever is mounted on or below
/// them taken away first. Nothing is ever removed. Ends the process as enterPrivateRoot does.
void renewDevice();

}  // namespace kelt::tests
