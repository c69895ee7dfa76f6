#pragma once
// The choices of an import, made by what there is on the device.

#include <optional>

#include "keys/begun_import.h"

namespace kelt::keys {

/// What is recorded of the agent's mode and key size (KeyConf); what is not recorded, or cannot be read, is as in a
/// CryptoSetting.
[[nodiscard]] CryptoSetting currentSetting();

/// An import from the directory of `files`, with all but their identities: what it takes (keys/import_plan.h), and the
/// facts behind that. `past` is an import that was cut off and that this one is in the place of: what that has changed
/// by then is not what the choices are to depend on. Changes nothing. Throws std::bad_alloc.
[[nodiscard]] BegunImport choose(bool fromUpdateDir, const KeyFiles& files, const std::optional<BegunImport>& past);

}  // namespace kelt::keys
