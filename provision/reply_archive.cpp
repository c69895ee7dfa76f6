#include "provision/reply_archive.h"

#include <exception>
#include <string>
#include <utility>

#include "platform/base64.h"

namespace kelt::provision {
namespace {

constexpr std::size_t kGroup = 4;       // characters that belong together
constexpr std::size_t kGroupBytes = 3;  // what a group without padding holds

bool bBlank(char c) {
  return c == '\n' || c == '\r' || c == ' ' || c == '\t';
}

class PieceDecoder {
 public:
  explicit PieceDecoder(const PieceSink& sink) : m_sink(sink) {}

  /// Takes the next characters. Whole groups of them are decoded, the rest waits for more.
  Decoding add(std::string_view text) {
    const std::size_t waiting = m_waiting.size();
    // Decoding takes wide text, and is fastest without blanks.
    std::wstring wide = std::exchange(m_waiting, {});
    wide.resize(waiting + text.size());
    std::size_t used = waiting;
    for (const char c : text) {
      // Unsigned, as a byte beyond ASCII must not become a character below 0.
      wide[used] = static_cast<wchar_t>(static_cast<unsigned char>(c));
      used += bBlank(c) ? 0 : 1;
    }
    wide.resize(used);
    // A piece may end anywhere, but only whole groups decode by themselves.
    m_waiting = wide.substr(used - used % kGroup);
    wide.resize(used - used % kGroup);
    return decode(std::move(wide));
  }

  [[nodiscard]] Decoding finish() const { return m_waiting.empty() ? Decoding::kDone : Decoding::kNoBase64; }

 private:
  Decoding decode(std::wstring&& groups) {
    if (groups.empty()) return Decoding::kDone;
    if (m_bPadded) return Decoding::kNoBase64;  // padding ends a text
    const std::size_t most = groups.size() / kGroup * kGroupBytes;
    const ABuffer bytes = ABase64Encode::decode(std::move(groups));
    if (bytes.length() == 0) return Decoding::kNoBase64;
    // Fewer than that many groups can hold: there was padding among them.
    m_bPadded = bytes.length() < most;
    return m_sink(bytes.span()) ? Decoding::kDone : Decoding::kNotStored;
  }

  const PieceSink& m_sink;
  std::wstring m_waiting;  // the characters of a group that is not complete
  bool m_bPadded = false;
};

Decoding decode(std::string_view base64, const PieceSink& sink, std::size_t piece) {
  PieceDecoder decoder(sink);
  while (!base64.empty()) {
    const std::string_view next = base64.substr(0, piece);
    if (const Decoding outcome = decoder.add(next); outcome != Decoding::kDone) return outcome;
    base64.remove_prefix(next.size());
  }
  return decoder.finish();
}

}  // namespace

Decoding decodeInPieces(std::string_view base64, const PieceSink& sink, std::size_t piece) {
  try {
    return decode(base64, sink, piece);
  } catch (const std::exception&) {
    return Decoding::kNotStored;  // want of memory says nothing about the text
  }
}

}  // namespace kelt::provision
