#include "keys/hex_hash.h"

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
  return hexDigits(digest);
}

std::string hexDigits(const ABuffer& bytes) {
  // By hand, as streams, which shipped code has none of, consult the locale.
  constexpr const char* kDigits = "0123456789ABCDEF";
  std::string digits;
  for (const unsigned char byte : bytes.span()) {
    digits += kDigits[byte >> 4U];
    digits += kDigits[byte & 0x0FU];
  }
  return digits;
}

}  // namespace kelt::keys
