#pragma once
// The hash by which the agent knows a key, and the mark of an import a key file.

#include <memory>
#include <optional>
#include <string>

#include "platform/crypto.h"

namespace kelt::keys {

/// SHA-256 (FIPS 180-4), reckoned by the crypto library and written as upper-case hexadecimal digits.
class HexHash {
 public:
  /// Asks the crypto library for the hash, which starts the library where it does not run yet.
  HexHash();

  /// Whether the library has one. Where it cannot be started, it has none.
  [[nodiscard]] bool bReady() const { return m_hash != nullptr; }

  /// The 64 digits of the hash of `bytes`, or nothing where the library has none or cannot reckon it.
  [[nodiscard]] std::optional<std::string> of(const ABuffer& bytes);

 private:
  using IHash = quorvane_com::QV::crypto::IHash;
  struct Destroy {
    void operator()(IHash* hash) const;
  };

  std::unique_ptr<IHash, Destroy> m_hash;
};

}  // namespace kelt::keys
