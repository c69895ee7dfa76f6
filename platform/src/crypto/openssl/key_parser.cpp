#include "crypto/openssl/key_parser.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstdint>
#include <cstring>
#include <memory>
#include <openssl/core_names.h>
#include <openssl/crypto.h>
#include <openssl/pem.h>
#include <string>
#include <string_view>

#include "crypto/openssl/handles.h"

namespace kelt::platform {
namespace {

using base::SecretBytes;
using Bytes = std::span<const unsigned char>;

/// One way of writing a key: the label of its PEM block, and OpenSSL's name of the structure inside.
struct Form {
  const char* label;
  const char* structure;
};

/// One kind of key: its name in messages, what OpenSSL calls the parts of it, the ways of writing it, and the one in
/// which it is kept.
struct Kind {
  const char* name;
  int parts;
  std::array<Form, 2> forms;
  const char* kept;
};

constexpr Kind kPublic{"an RSA public key",
                       EVP_PKEY_PUBLIC_KEY,
                       {{{"PUBLIC KEY", "SubjectPublicKeyInfo"}, {"RSA PUBLIC KEY", "type-specific"}}},
                       "SubjectPublicKeyInfo"};
constexpr Kind kSecret{"an RSA secret key",
                       EVP_PKEY_KEYPAIR,
                       {{{"PRIVATE KEY", "PrivateKeyInfo"}, {"RSA PRIVATE KEY", "type-specific"}}},
                       "PrivateKeyInfo"};

Error malformed(std::string sentence) {
  return {ErrorKind::kMalformed, 0, std::move(sentence)};
}

/// Asking for a passphrase would hang a run without a terminal.
int refusePassphrase(char* /*buffer*/, int /*size*/, int /*bWriting*/, void* /*argument*/) {
  return -1;
}

/// Whether `der` is one SEQUENCE of definite length, from its first byte to its last.
bool bOneSequence(Bytes der) {
  // The tag of a SEQUENCE; of the forms of its length, DER has the definite ones only (X.690, 10.1).
  if (der.size() < 2 || der[0] != 0x30) return false;
  if (der[1] < 0x80) return der.size() == 2U + der[1];
  const std::size_t lengthBytes = der[1] & 0x7FU;
  // Four bytes speak of 4 GiB; a sum of lengths within that cannot begin again at 0 in the 64 bits below.
  if (lengthBytes == 0 || lengthBytes > 4 || der.size() < 2 + lengthBytes) return false;
  std::uint64_t length = 0;
  for (const unsigned char byte : der.subspan(2, lengthBytes))
    length = (length << 8U) | byte;
  return der.size() == 2 + lengthBytes + length;
}

bool bHasSecret(const EVP_PKEY* key) {
  BIGNUM* exponent = nullptr;
  const int found = EVP_PKEY_get_bn_param(key, OSSL_PKEY_PARAM_RSA_D, &exponent);
  const Number owned(exponent);
  return found == 1;
}

Key decode(OSSL_LIB_CTX* context, const Kind& kind, const Form& form, Bytes der) {
  EVP_PKEY* key = nullptr;
  const Decoder decoder(
      OSSL_DECODER_CTX_new_for_pkey(&key, "DER", form.structure, "RSA", kind.parts, context, nullptr));
  if (decoder == nullptr) return nullptr;
  OSSL_DECODER_CTX_set_pem_password_cb(decoder.get(), refusePassphrase, nullptr);
  const unsigned char* rest = der.data();
  std::size_t left = der.size();
  const bool bDecoded = OSSL_DECODER_from_data(decoder.get(), &rest, &left) == 1;
  Key owned(key);
  if (!bDecoded || left != 0 || EVP_PKEY_get_bits(key) <= 0) return nullptr;
  // Asked for a key pair, OpenSSL also takes a public key alone.
  if ((kind.parts & OSSL_KEYMGMT_SELECT_PRIVATE_KEY) != 0 && !bHasSecret(key)) return nullptr;
  return owned;
}

Result<Key> decodeDer(OSSL_LIB_CTX* context, const Kind& kind, Bytes der, const char* label) {
  if (!bOneSequence(der)) return malformed("not one complete DER structure, or something follows it");
  // A PEM block says by its label which form it is in. A DER file does not, so each is tried.
  for (const Form& form : kind.forms) {
    if (label != nullptr && std::string_view(label) != form.label) continue;
    if (Key key = decode(context, kind, form, der)) return key;
  }
  return malformed(std::string("not ") + kind.name);
}

/// What one PEM block holds. OpenSSL allocates the parts; the content is wiped with them.
struct PemBlock {
  PemBlock() = default;
  PemBlock(const PemBlock&) = delete;
  PemBlock& operator=(const PemBlock&) = delete;
  ~PemBlock() {
    // By these functions, as the block is read with PEM_FLAG_SECURE: where there is a secure heap, they are in it.
    OPENSSL_secure_free(label);
    OPENSSL_secure_free(header);
    OPENSSL_secure_clear_free(data, size());
  }
  [[nodiscard]] std::size_t size() const { return length < 0 ? 0 : static_cast<std::size_t>(length); }

  char* label = nullptr;
  char* header = nullptr;
  unsigned char* data = nullptr;
  long length = 0;
};

bool bBlank(unsigned char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

bool bBlanks(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return bBlank(static_cast<unsigned char>(c)); });
}

/// Whether there is nothing in a line of a PEM block but base64 and blanks.
bool bBase64(std::string_view line) {
  constexpr std::string_view kTaken = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/= \t\r";
  return line.find_first_not_of(kTaken) == std::string_view::npos;
}

/// Whether a line that begins or ends a PEM block is as it shows: OpenSSL takes control characters for spaces.
bool bAsItShows(std::string_view line) {
  line = line.substr(0, line.find_last_not_of(" \t\r") + 1);
  return std::all_of(line.begin(), line.end(), [](char c) { return c >= ' ' && c <= '~'; });
}

/// Whether OpenSSL looks at all that stands in a PEM block that it has read: it skips what follows a carriage return in
/// its line, control characters, and base64 after a "-".
bool bAllRead(Bytes block) {
  std::string_view text(reinterpret_cast<const char*>(block.data()), block.size());
  while (!text.empty() && bBlank(static_cast<unsigned char>(text.back())))
    text.remove_suffix(1);
  for (bool bFirst = true; !text.empty(); bFirst = false) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    if (!bBlanks(line.substr(std::min(line.find('\r'), line.size())))) return false;
    const bool bInside = !bFirst && !text.empty();
    if (bInside ? !bBase64(line) : !bAsItShows(line)) return false;
  }
  return true;
}

/// Reads the rest. Returns whether that was nothing but blanks and line ends.
bool readBlanksToEnd(BIO* bio) {
  unsigned char next = 0;
  while (BIO_read(bio, &next, 1) == 1) {
    if (!bBlank(next)) return false;
  }
  return true;
}

Result<Key> decodePem(OSSL_LIB_CTX* context, const Kind& kind, Bytes text) {
  constexpr std::string_view kBegin = "-----BEGIN ";
  // OpenSSL passes over any text before the block; a key file holds the key and nothing else.
  if (text.size() < kBegin.size() || std::memcmp(text.data(), kBegin.data(), kBegin.size()) != 0) {
    return malformed("neither DER nor PEM");
  }
  // The BIO takes its length as an int.
  if (text.size() > INT_MAX) return malformed("too large");
  const Bio bio(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
  PemBlock block;
  if (bio == nullptr ||
      PEM_read_bio_ex(bio.get(), &block.label, &block.header, &block.data, &block.length, PEM_FLAG_SECURE) != 1) {
    return malformed("not a complete PEM block");
  }
  if (!readBlanksToEnd(bio.get())) return malformed("something follows the PEM block");
  const std::string_view label(block.label);
  if (*block.header != '\0' || label.starts_with("ENCRYPTED")) return malformed("an encrypted key");
  const bool bKnown =
      std::any_of(kind.forms.begin(), kind.forms.end(), [&](const Form& form) { return label == form.label; });
  if (!bKnown) return malformed(std::string("a PEM block that does not hold ") + kind.name);
  if (!bAllRead(text)) return malformed("something else in the PEM block");
  return decodeDer(context, kind, {block.data, block.size()}, block.label);
}

Result<Key> readKey(OSSL_LIB_CTX* context, const Kind& kind, Bytes file) {
  if (file.empty()) return malformed("empty");
  // Only DER begins so: in a PEM file that is taken, blanks and the first "-" come before anything else.
  if (file[0] == 0x30) return decodeDer(context, kind, file, nullptr);
  const auto start = std::find_if_not(file.begin(), file.end(), bBlank);
  return decodePem(context, kind, {start, file.end()});
}

/// Reads a key in any of its forms and writes it in the one that is kept: the store then holds the same for the same
/// key, and nothing that came along with it.
template <typename Container>
Result<Container> normalise(OSSL_LIB_CTX* context, const Kind& kind, Bytes file) {
  const Result<Key> key = readKey(context, kind, file);
  if (!key) return key.error();
  const Encoder encoder(OSSL_ENCODER_CTX_new_for_pkey(key.value().get(), kind.parts, "DER", kind.kept, nullptr));
  unsigned char* der = nullptr;
  std::size_t length = 0;
  if (encoder == nullptr || OSSL_ENCODER_to_data(encoder.get(), &der, &length) != 1) {
    return malformed(std::string("not ") + kind.name + " that can be written again");
  }
  const auto wipe = [length](unsigned char* block) { OPENSSL_clear_free(block, length); };
  const std::unique_ptr<unsigned char, decltype(wipe)> owned(der, wipe);
  return Container(der, der + length);
}

}  // namespace

Result<std::vector<unsigned char>> parsePublicKey(OSSL_LIB_CTX* context, Bytes file) {
  return normalise<std::vector<unsigned char>>(context, kPublic, file);
}

Result<SecretBytes> parseSecretKey(OSSL_LIB_CTX* context, Bytes file) {
  return normalise<SecretBytes>(context, kSecret, file);
}

Result<unsigned> parsedKeySize(OSSL_LIB_CTX* context, bool bSecret, Bytes file) {
  const Result<Key> key = readKey(context, bSecret ? kSecret : kPublic, file);
  if (!key) return key.error();
  return static_cast<unsigned>(EVP_PKEY_get_bits(key.value().get()));
}

}  // namespace kelt::platform
