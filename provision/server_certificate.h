#pragma once
// What a TLS connection tells of the server, for the look at a management server.

#include "provision/probe.h"

namespace kelt::provision {

/// Tells of the TLS connection `ssl` (an SSL of OpenSSL, shaken hands): tls, and of the server's certificate subject,
/// issuer, not-before, not-after, validity and sha256.
/// sha256 comes last, so that whoever waits for it has all others. A server that shows no certificate has tls alone.
void tellConnection(const void* ssl, const ProbeFacts& tell);

}  // namespace kelt::provision
