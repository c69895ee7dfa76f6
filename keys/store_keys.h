#pragma once
// Bringing keys into the key store, and recording the setting that they are for.

#include "helper/unfinished_work.h"
#include "keys/begun_import.h"

namespace kelt::keys {

/// Logs as a problem why an import ends here. Returns false, its result.
bool fail(const char* why);

/// Stores what `import` brings: starts the crypto library in its mode, brings the keys from `files` and the registry
/// emulation into the key store, and records the setting and the hash of the server's key. Notes the identities of the
/// files in it, and marks it by `mark` as begun before the first effect. After true the mark, and the stage of the
/// import, say that only the originals are still to be deleted. After false the originals are as they were, while keys
/// and setting may have been stored. Throws std::bad_alloc.
[[nodiscard]] bool store(BegunImport& import, const KeyFiles& files, helper::WorkMark& mark);

/// For an import that is not repeated: where its setting was recorded, the agent's pair of the old size still goes.
void discardPairOf(const BegunImport& import);

}  // namespace kelt::keys
