#pragma once
// Which key files an import takes, and in which mode and key size: decided from facts alone.

#include "platform/crypto.h"

namespace kelt::keys {

using quorvane_com::QV::crypto::KeySize;
using quorvane_com::QV::crypto::Mode;

/// What the agent runs in. Where nothing is recorded: non-FIPS and 1024 bits.
struct CryptoSetting {
  Mode mode = Mode::kNonFips;
  KeySize keySize = KeySize::kLower;

  friend bool operator==(const CryptoSetting&, const CryptoSetting&) = default;
};

/// What the choice depends on.
struct ImportFacts {
  bool fromUpdateDir = false;         ///< an update brought the key files, not a switch
  bool bMarkerCounts = false;         ///< a FIPS marker is there and the registry emulation holds no server keys
  bool bMarkerSaysFips = false;       ///< its first byte is '1'
  bool bServerKey2048Exists = false;  ///< and is readable and not empty
  CryptoSetting current{};            ///< what is recorded
};

/// The choice.
struct ImportPlan {
  CryptoSetting setting{};    ///< in which the agent is to run from now on
  bool bLegacyNames = false;  ///< the key files of 1024 bits instead of those of 2048 bits
};

/// A marker that counts decides the mode and, with the key files that are there, the size: a FIPS device keeps 2048
/// bits even where it has only the file names of 1024 bits. Else an import from the update directory keeps the current
/// setting and takes the key files that are there, and any other import takes non-FIPS, 1024 bits and the file names of
/// 1024 bits. A function of its argument alone: it reads nothing and cannot fail.
[[nodiscard]] ImportPlan planImport(const ImportFacts& facts);

/// The log texts that announce a mode and a key size, in UTF-8. A size that is not of its enumeration has a text too:
/// it is announced, and the import goes on.
[[nodiscard]] const char* modeText(Mode mode);
[[nodiscard]] const char* keySizeText(KeySize keySize);

}  // namespace kelt::keys
