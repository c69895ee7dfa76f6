// Key files: what is accepted is one key, is kept in a form that gives itself again, is of one kind only, and leaves
// nothing of a secret in memory that was given back.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "crypto/engine.h"
#include "fuzz/freed_memory.h"
#include "fuzz/require.h"

namespace {

using kelt::platform::CryptoEngine;
using kelt::tests::require;
using Bytes = std::span<const unsigned char>;

CryptoEngine& startedEngine() {
  static CryptoEngine* const engine = [] {
    CryptoEngine* const made = kelt_crypto_engine();
    require(made != nullptr && made->start(false).ok(), "the engine starts");
    return made;
  }();
  return *engine;
}

/// A refusal says one of these, and so nothing of the content.
void checkRefusal(const kelt::base::Error& error) {
  static const std::set<std::string> sentences = {
      "empty",
      "neither DER nor PEM",
      "too large",
      "not a complete PEM block",
      "something follows the PEM block",
      "something else in the PEM block",
      "an encrypted key",
      "a PEM block that does not hold an RSA public key",
      "a PEM block that does not hold an RSA secret key",
      "not one complete DER structure, or something follows it",
      "not an RSA public key",
      "not an RSA secret key",
      "not an RSA public key that can be written again",
      "not an RSA secret key that can be written again",
  };
  require(error.kind == kelt::base::ErrorKind::kMalformed, "a refusal is about the content");
  require(sentences.contains(error.message), "a refusal holds nothing of the content");
}

/// Whether a carriage return stands before a blank, a line end or the end of the text wherever there is one.
bool bReturnsEndLines(std::string_view text) {
  for (std::size_t at = text.find('\r'); at != std::string_view::npos; at = text.find('\r', at + 1)) {
    if (at + 1 < text.size() && std::string_view(" \t\r\n").find(text[at + 1]) == std::string_view::npos) return false;
  }
  return true;
}

/// Whether a file is the lines of one PEM block, with blanks around each of them at most.
bool bOneBlock(Bytes file) {
  constexpr std::string_view kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/= \t\r\n";
  constexpr std::string_view kBlanks = " \t\r\n";
  std::string_view text(reinterpret_cast<const char*>(file.data()), file.size());
  text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
  text = text.substr(0, text.find_last_not_of(kBlanks) + 1);
  const std::size_t firstEnd = text.find("-----", 11);
  const std::size_t last = text.rfind("\n-----END ");
  if (!text.starts_with("-----BEGIN ") || last == std::string_view::npos || firstEnd > last) return false;
  const std::string_view inside = text.substr(firstEnd + 5, last - firstEnd - 5);
  const std::string_view label = text.substr(last + 10);
  return bReturnsEndLines(text) && inside.find_first_not_of(kDigits) == std::string_view::npos &&
         label.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ -") == std::string_view::npos && label.ends_with("-----");
}

/// Whether the first length in a file is that of all of it.
bool bOneStructure(Bytes file) {
  if (file.size() < 2 || file[0] != 0x30) return false;
  if (file[1] < 0x80) return file.size() == 2U + file[1];
  const std::size_t lengthBytes = file[1] - 0x80U;
  if (lengthBytes > 4 || file.size() < 2 + lengthBytes) return false;
  std::uint64_t length = 0;
  for (const unsigned char byte : file.subspan(2, lengthBytes))
    length = length * 256 + byte;
  return file.size() == 2 + lengthBytes + length;
}

/// Parts of a secret key, from the half of it that is secret in any case, and as big numbers are held in memory: the
/// least significant byte first, or the most. Only such as do not come about by chance.
std::vector<std::string> tracesOf(Bytes secret) {
  constexpr std::size_t kLength = 16;
  std::vector<std::string> traces;
  for (std::size_t at = secret.size() / 2; at + kLength <= secret.size(); at += 40) {
    const Bytes part = secret.subspan(at, kLength);
    if (std::set<unsigned char>(part.begin(), part.end()).size() < kLength / 2) continue;
    traces.emplace_back(part.begin(), part.end());
    traces.emplace_back(part.rbegin(), part.rend());
  }
  return traces;
}

void checkNoTraces(Bytes file, Bytes secret) {
  const std::vector<std::string> traces = tracesOf(secret);
  std::size_t found = 0;
  {
    const kelt::tests::FreedMemory freed(traces);
    { const auto again = startedEngine().secretKey(file); }
    found = freed.found();
  }
  require(found == 0, "nothing of a secret key is left in memory that was given back");
}

bool bPublicKey(Bytes file) {
  const auto key = startedEngine().publicKey(file);
  if (!key) {
    checkRefusal(key.error());
    return false;
  }
  require(bOneStructure(file) || bOneBlock(file), "a key file is a key and nothing else");
  require(bOneStructure(key.value()), "what is kept is one structure");
  const auto again = startedEngine().publicKey(key.value());
  require(again.ok() && again.value() == key.value(), "what is kept of a public key gives itself again");
  const auto hash = startedEngine().sha256(key.value());
  require(hash.ok() && hash.value().size() == 32, "what is kept has a hash");
  return true;
}

bool bSecretKey(Bytes file) {
  const auto key = startedEngine().secretKey(file);
  if (!key) {
    checkRefusal(key.error());
    return false;
  }
  require(bOneStructure(file) || bOneBlock(file), "a key file is a key and nothing else");
  require(bOneStructure(key.value()), "what is kept is one structure");
  const auto again = startedEngine().secretKey(key.value());
  require(again.ok() && again.value() == key.value(), "what is kept of a secret key gives itself again");
  require(!startedEngine().publicKey(key.value()).ok(), "what is kept of a secret key is no public key");
  checkNoTraces(file, key.value());
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const bool bPublic = bPublicKey({data, size});
  const bool bSecret = bSecretKey({data, size});
  require(!(bPublic && bSecret), "a file holds one kind of key");
  return 0;
}
