#pragma once

#include "provision/probe.h"

namespace kelt::provision {

/// Tells of the TLS connection `ssl` (an SSL of OpenSSL, shaken hands): tls, and of the server's certificate subject,
/// issuer, not-before, not-after, validity and sha256.
void tellConnection(const void* ssl, const ProbeFacts& tell);

}  // namespace kelt::provision
