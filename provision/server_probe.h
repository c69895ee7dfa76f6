#pragma once
// The look at a management server by libcurl, inside the loadable object.

#include <string>

#include "provision/probe.h"

namespace kelt::provision {

/// What probeServer promises, as the loadable object holds it. May throw std::bad_alloc.
void lookAtServer(const std::string& server, const ProbeFacts& tell);

/// The version of libcurl.
[[nodiscard]] std::string curlVersion();

}  // namespace kelt::provision
