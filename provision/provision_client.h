#pragma once
// Provisioning itself, as the loadable object holds it.

#include <boost/thread/mutex.hpp>
#include <string>

#include "provision/status.h"

namespace kelt::provision {

/// Held for the whole of a provisioning.
extern boost::mutex mtxProvision;

/// What Provision::iGetProvisionFiles promises. May throw std::bad_alloc.
[[nodiscard]] Status provisionFiles(const std::wstring& dir, const std::string& server, const std::string& user,
                                    const std::string& password);

}  // namespace kelt::provision
