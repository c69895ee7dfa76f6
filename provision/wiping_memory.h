#pragma once

namespace kelt::provision {

/// Makes libcurl take its memory from functions that wipe what is released: it copies the password into its handle and,
/// encoded, into the request. OpenSSL below it gets such functions, too, and keeps them. To be called before libcurl is
/// first used, or after curl_global_cleanup.
void giveCurlWipingMemory();

}  // namespace kelt::provision
