#include <array>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <span>
#include <string>
#include <string_view>
#include <sys/mman.h>
#include <unistd.h>

#include "support/child.h"
#include "support/private_device.h"

#include "app/parser.h"
#include "base/unique_fd.h"

namespace kelt::app {
namespace {

constexpr unsigned char kMask = 0x55;
/// The password in a form that no search for it finds; it is made where it is needed.
constexpr std::array<unsigned char, 12> kMasked = {'I' ^ kMask, 'c' ^ kMask, '9' ^ kMask, 'h' ^ kMask,
                                                   'a' ^ kMask, 't' ^ kMask, 'S' ^ kMask, 'i' ^ kMask,
                                                   'm' ^ kMask, 's' ^ kMask, '4' ^ kMask, '2' ^ kMask};

/// How often the password stands between two addresses, spelled in units of this type. Looks at memory as it is, freed
/// or not, which the address sanitizer would not have.
template <typename Unit>
__attribute__((noinline, no_sanitize("address"))) int countBetween(std::uintptr_t from, std::uintptr_t to) {
  int found = 0;
  for (; from + kMasked.size() * sizeof(Unit) <= to; from += sizeof(Unit)) {
    const auto* const units = reinterpret_cast<const volatile Unit*>(from);
    std::size_t same = 0;
    while (same < kMasked.size() && units[same] == static_cast<Unit>(kMasked[same] ^ kMask))
      ++same;
    if (same == kMasked.size()) ++found;
  }
  return found;
}

/// The process's mappings as text, in memory apart from the heap: taken from there, it might cover a trace.
std::string_view mappings() {
  constexpr std::size_t kRoom = std::size_t{1} << 20;
  static char* const text =
      static_cast<char*>(::mmap(nullptr, kRoom, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  const base::UniqueFd file(::open("/proc/self/maps", O_RDONLY | O_CLOEXEC));
  std::size_t length = 0;
  for (ssize_t got = 1; got > 0; length += static_cast<std::size_t>(got)) {
    got = ::read(file.get(), text + length, kRoom - length);
    if (got < 0) return {};
  }
  return {text, length};
}

/// How often the password stands in memory that this process can write, as bytes or as wide characters.
int tracesOfPassword() {
  constexpr std::uintptr_t kOrdinary = std::uintptr_t{64} << 20;  // the shadow of a sanitizer is larger
  int found = 0;
  std::string_view rest = mappings();
  while (!rest.empty()) {
    char* end = nullptr;
    const std::uintptr_t from = std::strtoul(rest.data(), &end, 16);
    const std::uintptr_t to = std::strtoul(end + 1, &end, 16);
    if (std::string_view(end + 1, 2) == "rw" && to - from <= kOrdinary) {
      found += countBetween<unsigned char>(from, to) + countBetween<wchar_t>(from, to);
    }
    rest.remove_prefix(rest.find('\n') + 1);
  }
  return found;
}

TEST(SecretTraces, APasswordIsGoneFromMemoryWithTheRecord) {
  tests::Child child([] {
    std::string option = "-P";
    std::string other(kMasked.size(), 'x');  // the record has room for the second password and covers no trace of it
    std::string password;
    for (const unsigned char unit : kMasked)
      password += static_cast<char>(unit ^ kMask);
    char* arguments[] = {option.data(), other.data(), option.data(), password.data(), nullptr};
    {
      CommandLineData data;
      if (!ParseCommandLineArg(arguments, data)) return 2;
      if (tracesOfPassword() != 1) return 3;  // in the record, and nowhere else
    }
    return tracesOfPassword() == 0 ? 0 : 4;
  });
  EXPECT_EQ(child.exitStatus(), 0);
}

}  // namespace
}  // namespace kelt::app
