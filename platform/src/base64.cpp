#include "platform/base64.h"

#include <algorithm>
#include <array>
#include <memory>
#include <openssl/evp.h>
#include <optional>
#include <span>

namespace {

/// Units decoded at a time: the narrow copy of a large text never exists as a whole.
constexpr std::size_t kChunk = 4096;

bool bSkipped(wchar_t unit) {
  return unit == L'\r' || unit == L'\n' || unit == L' ' || unit == L'\t';
}

bool bDigit(wchar_t unit) {
  return (unit >= L'A' && unit <= L'Z') || (unit >= L'a' && unit <= L'z') || (unit >= L'0' && unit <= L'9') ||
         unit == L'+' || unit == L'/';
}

/// The number of bytes that `text` stands for, or nothing where it holds a character that has no place in base64. The
/// decoder below judges groups and padding, but takes "-" for the end of the text, so characters are judged here.
std::optional<std::size_t> decodedLength(const std::wstring& text) {
  std::size_t digits = 0;
  for (const wchar_t unit : text) {
    if (bDigit(unit)) {
      ++digits;
    } else if (unit != L'=' && !bSkipped(unit)) {
      return std::nullopt;
    }
  }
  return digits * 3 / 4;
}

/// Decodes a text of known characters, chunk by chunk, into a buffer of the right length.
class Decoder {
 public:
  explicit Decoder(std::span<unsigned char> target) : m_target(target) { EVP_DecodeInit(m_context.get()); }
  Decoder(const Decoder&) = delete;
  Decoder& operator=(const Decoder&) = delete;
  ~Decoder() { kelt::base::wipe(m_bytes.data(), m_bytes.size()); }

  bool add(std::span<const wchar_t> units) {
    std::array<unsigned char, kChunk> narrow{};
    std::transform(units.begin(), units.end(), narrow.begin(),
                   [](wchar_t unit) { return static_cast<unsigned char>(unit); });
    int got = 0;
    const int status =
        EVP_DecodeUpdate(m_context.get(), m_bytes.data(), &got, narrow.data(), static_cast<int>(units.size()));
    kelt::base::wipe(narrow.data(), narrow.size());
    return status >= 0 && keep(got);
  }

  /// Whether the text was complete and filled the whole buffer.
  bool finish() {
    int got = 0;
    return EVP_DecodeFinal(m_context.get(), m_bytes.data(), &got) == 1 && keep(got) && m_used == m_target.size();
  }

 private:
  // The decoder writes padding bytes too before it takes them off its count, so it never writes into the target itself.
  bool keep(int got) {
    const auto count = static_cast<std::size_t>(got);
    if (got < 0 || count > m_target.size() - m_used) return false;
    std::copy_n(m_bytes.begin(), count, m_target.begin() + static_cast<std::ptrdiff_t>(m_used));
    m_used += count;
    return true;
  }

  struct Free {
    void operator()(EVP_ENCODE_CTX* context) const { EVP_ENCODE_CTX_free(context); }
  };
  std::unique_ptr<EVP_ENCODE_CTX, Free> m_context{EVP_ENCODE_CTX_new()};
  std::array<unsigned char, kChunk> m_bytes{};
  std::span<unsigned char> m_target;
  std::size_t m_used = 0;
};

bool decodeInto(std::span<unsigned char> target, std::span<const wchar_t> text) {
  Decoder decoder(target);
  while (!text.empty()) {
    const std::size_t count = std::min(kChunk, text.size());
    if (!decoder.add(text.first(count))) return false;
    text = text.subspan(count);
  }
  return decoder.finish();
}

}  // namespace

ABuffer ABase64Encode::decode(const AString& text) {
  const std::optional<std::size_t> length = decodedLength(text.str());
  ABuffer decoded;
  if (!length || !decoded.allocate(*length)) return {};
  if (!decodeInto({decoded.data(), decoded.length()}, text.str())) return {};
  return decoded;
}
