#include "helper/encoding.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <span>

#include "base/secret.h"
#include "helper/latin1_converter.h"
#include "platform/astring.h"

namespace kelt::helper {
namespace {

/// An argument may be a password: whatever it passes through on its way is wiped.
using WideBuffer = std::vector<wchar_t, base::WipingAllocator<wchar_t>>;

/// Widens without the system's help: in ISO-8859-1 a byte is its own code point.
void widenBytes(std::span<const char> latin1, std::span<wchar_t> wide) {
  std::transform(latin1.begin(), latin1.end(), wide.begin(),
                 [](char byte) { return static_cast<wchar_t>(static_cast<unsigned char>(byte)); });
}

/// Widens `latin1` into the larger `wide`, all zero before, which is terminated whatever happens.
void widen(std::span<const char> latin1, std::span<wchar_t> wide) {
  const std::span<wchar_t> units = wide.first(latin1.size());
  Latin1Converter converter(quorvane_com::orv::isBigEndian() ? "UCS-4BE" : "UCS-4LE");
  const auto written = converter.convert(latin1, {reinterpret_cast<char*>(units.data()), units.size_bytes()});
  if (written != units.size_bytes()) widenBytes(latin1, units);
}

}  // namespace

std::wstring latin1_to_unicode(const std::string& latin1) {
  const std::size_t length = latin1.size() + 1;
  const std::unique_ptr<wchar_t[]> buffer(new (std::nothrow) wchar_t[length]());
  if (buffer == nullptr) return {};
  auto capacity = static_cast<std::int32_t>(length);
  convert_latin1_to_unicode(latin1.c_str(), buffer.get(), &capacity);
  std::wstring wide(buffer.get());
  base::wipe(buffer.get(), length * sizeof(wchar_t));
  return wide;
}

std::int32_t convert_latin1_to_unicode(const char* latin1, wchar_t* out, std::int32_t* capacity) {
  if (latin1 == nullptr || out == nullptr || capacity == nullptr) return 1;
  const std::size_t length = std::strlen(latin1) + 1;
  if (*capacity < 0 || static_cast<std::size_t>(*capacity) < length) return 0;
  WideBuffer wide(length + 1);
  widen({latin1, length}, wide);
  const auto end = std::find(wide.begin(), wide.end(), L'\0') + 1;
  std::copy(wide.begin(), end, out);
  return 0;
}

}  // namespace kelt::helper
