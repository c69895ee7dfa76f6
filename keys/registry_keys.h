#pragma once
// Keys kept in the registry emulation, from where an import brings them into the key store.

#include "platform/abuffer.h"

namespace kelt::keys {

/// The agent's key, below HKEY_LOCAL_MACHINE.
inline constexpr const char* kAgentKey = R"(SOFTWARE\Tellwick\Zentor\Agent)";

/// Reads the server's public key into `pub` and the request secret key into `sec`. Returns true only when all four
/// values (two sizes, two keys) are there and well-formed, each key of at most 64 KiB. Throws std::bad_alloc.
bool getServerKeys(AnObjectBuffer<unsigned char>& pub, AnObjectBuffer<unsigned char>& sec);

/// The same for the agent's public and secret key.
bool getAgentKeys(AnObjectBuffer<unsigned char>& pub, AnObjectBuffer<unsigned char>& sec);

/// Deletes all key values and the server key's hash, and "AgentGUID" when `removeGuid`. Returns the status of opening
/// or closing the registry key (0 success); when it does not open or close, nothing is deleted. Values that are not
/// there are no failure.
int removeKeys(bool removeGuid);

}  // namespace kelt::keys
