#pragma once
// Provisioning itself, as the loadable object holds it.

#include <boost/thread/mutex.hpp>  // IWYU pragma: keep
#include <string>
#include <string_view>

#include "provision/status.h"

namespace kelt::provision {

/// Held for the whole of a provisioning, which has some of its state in one place for the whole process
/// (provision/transfer.h, provision/terminal_modes.h).
extern boost::mutex mtxProvision;

/// What Provision::iGetProvisionFiles promises, with `directory` in UTF-8. What it makes of the password is wiped when
/// it returns. Throws std::bad_alloc; the files that were written by then stay.
[[nodiscard]] Status provisionFiles(const std::string& directory, std::string_view server, std::string_view user,
                                    std::string_view password);

}  // namespace kelt::provision
