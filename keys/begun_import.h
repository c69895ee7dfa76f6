#pragma once
// An import whose choices are made: what is done, and what a mark of it says to whoever has to finish it.
//
// The choices are noted, and the facts behind them, because they cannot be found out again: the import itself changes
// the recorded setting, the registry values and the key files.

#include <array>
#include <optional>
#include <string>

#include "keys/import_plan.h"
#include "keys/key_files.h"

namespace kelt::keys {

/// How far an import has come.
enum class Stage {
  kStoring,   ///< keys and setting are being stored, which can be done again from the key files
  kCleaning,  ///< all is stored; registry values and key files are being deleted
};

/// All that finishing an import takes.
struct BegunImport {
  Stage stage = Stage::kStoring;
  bool fromUpdateDir = false;                    ///< its key files are in the update directory
  ImportPlan plan{};                             ///< what was chosen
  CryptoSetting before{};                        ///< what was recorded when it began
  bool bRegistryKeys = false;                    ///< the registry emulation held server keys
  bool bAgentKeys = false;                       ///< the agent's own pair is taken from the registry emulation
  std::array<std::string, kKeyFileCount> files;  ///< which key files there were, by identitiesOf, in their order

  /// Whether the pair in the key store is discarded, being of another size.
  [[nodiscard]] bool bDiscardsPair() const { return plan.setting.keySize != before.keySize; }
};

/// The plan of a mark (helper/unfinished_work.h): a line "name=value" for each, in the order above.
[[nodiscard]] std::string planOf(const BegunImport& import);

/// Reads such a plan; nothing for whatever else: a line too many or too few, in another order or with another value.
[[nodiscard]] std::optional<BegunImport> importIn(std::string_view plan);

/// What tells the content of each key file from any other, in the order of inOrder: its SHA-256 in hexadecimal digits,
/// "-" where there is no file, "?" for what is no key file (no regular file of at most 64 KiB) or cannot be read, or
/// without crypto library. Links are followed. Throws std::bad_alloc.
[[nodiscard]] std::array<std::string, kKeyFileCount> identitiesOf(const KeyFiles& files);

/// Whether an identity is that of something that is there, a key file or not.
[[nodiscard]] bool bPresent(const std::string& identity);

}  // namespace kelt::keys
