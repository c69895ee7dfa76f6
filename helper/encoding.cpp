#include "helper/encoding.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <new>
#include <span>

#include "helper/latin1_converter.h"
#include "platform/astring.h"

namespace kelt::helper {
namespace {

/// Widens without the system's help: in ISO-8859-1 a byte is its own code point.
void widenBytes(std::span<const char> latin1, std::span<wchar_t> wide) {
  std::transform(latin1.begin(), latin1.end(), wide.begin(),
                 [](char byte) { return static_cast<wchar_t>(static_cast<unsigned char>(byte)); });
}

/// How many characters go through the system's conversion at once.
constexpr std::size_t kPiece = 256;

/// Widens `latin1` into as many units with the system's conversion. Returns false where there is none.
bool widenPieces(std::span<const char> latin1, std::span<wchar_t> wide) {
  Latin1Converter converter(quorvane_com::orv::isBigEndian() ? "UCS-4BE" : "UCS-4LE");
  const auto convert = [&](std::span<const char> from, std::span<wchar_t> to) {
    return converter.convert(from, {reinterpret_cast<char*>(to.data()), to.size_bytes()}) == to.size_bytes();
  };
  for (std::size_t done = 0; done < latin1.size(); done += kPiece) {
    const std::size_t count = std::min(kPiece, latin1.size() - done);
    if (!convert(latin1.subspan(done, count), wide.subspan(done, count))) return false;
  }
  // The conversion keeps the last piece in a buffer of its own, which it gives back unwiped; an argument may be a
  // password.
  std::array<char, kPiece> blanks{};
  std::array<wchar_t, kPiece> ignored{};
  blanks.fill(' ');
  return convert(blanks, ignored);
}

/// Widens `latin1` into as many units, whether or not the system can help.
void widen(std::span<const char> latin1, std::span<wchar_t> wide) {
  if (!widenPieces(latin1, wide)) widenBytes(latin1, wide);
}

}  // namespace

std::wstring latin1_to_unicode(const std::string& latin1) {
  std::wstring wide;
  try {
    wide.assign(latin1.size() + 1, L'\0');
  } catch (const std::bad_alloc&) {
    return {};
  }
  auto capacity = static_cast<std::int32_t>(wide.size());
  convert_latin1_to_unicode(latin1.c_str(), wide.data(), &capacity);
  wide.resize(wide.find(L'\0'));
  return wide;
}

std::int32_t convert_latin1_to_unicode(const char* latin1, wchar_t* out, std::int32_t* capacity) {
  if (latin1 == nullptr || out == nullptr || capacity == nullptr) return 1;
  const std::size_t length = std::strlen(latin1) + 1;  // the terminator is converted with the text
  // Want of room is no error of this interface; the caller sees it by a buffer that is as it was.
  if (*capacity < 0 || static_cast<std::size_t>(*capacity) < length) return 0;
  // Straight into the caller's buffer: an argument may be a password, and every copy would have to be wiped.
  widen({latin1, length}, {out, length});
  return 0;
}

}  // namespace kelt::helper
