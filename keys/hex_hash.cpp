#include "keys/hex_hash.h"

#include "base/hex.h"

namespace kelt::keys {

using quorvane_com::QV::crypto::CryptShim;
using quorvane_com::QV::crypto::HashType;

void HexHash::Destroy::operator()(IHash* hash) const {
  CryptShim::destroy_hash_object(hash);
}

HexHash::HexHash() : m_hash(CryptShim::create_hash_object(HashType::kSha256)) {}

std::optional<std::string> HexHash::of(const ABuffer& bytes) {
  ABuffer digest;
  if (m_hash == nullptr || !m_hash->hash(bytes, digest)) return std::nullopt;
  return base::hexDigits(digest.span());
}

}  // namespace kelt::keys
