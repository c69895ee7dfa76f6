#pragma once
// No copy of the password outlives a transfer.

namespace kelt::provision {

/// Starts libcurl on memory from functions that wipe what is released: it copies the password into its handle and,
/// encoded, into the request. OpenSSL below it gets such functions, too, and keeps them. To be called before libcurl is
/// first used, or after curl_global_cleanup. False without memory: then libcurl must not be used, since it would start
/// by itself on memory that is not wiped, and would take an OpenSSL that could not be started for one that is.
[[nodiscard]] bool startCurlOnWipingMemory();

}  // namespace kelt::provision
