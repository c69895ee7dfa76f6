#include "base/environment.h"

#include <array>
#include <cstddef>
#include <string_view>
#include <unistd.h>

namespace kelt::base {
namespace {

/// All that has an effect here. A list of what has none would never be complete.
constexpr std::array<std::string_view, 10> kKept{
    "PATH",      "PWD",      "LD_LIBRARY_PATH", "http_proxy", "https_proxy",
    "all_proxy", "no_proxy", "HTTPS_PROXY",     "ALL_PROXY",  "NO_PROXY",
};

/// The environment of the process, and how it was. They must outlive everything: the C library looks here at any time.
std::array<char*, kKept.size() + 1> g_own{};
char** g_original = nullptr;

/// The first entry of that name, which is the one that counts; null where there is none.
char* find(char** environment, std::string_view name) {
  for (; *environment != nullptr; ++environment) {
    const std::string_view entry(*environment);
    if (entry.size() > name.size() && entry[name.size()] == '=' && entry.starts_with(name)) return *environment;
  }
  return nullptr;
}

}  // namespace

void shedEnvironment() {
  // A second call would take what the first one left for the original.
  if (environ == nullptr || g_original != nullptr) return;
  std::size_t count = 0;
  for (const std::string_view name : kKept) {
    if (char* entry = find(environ, name)) g_own[count++] = entry;
  }
  g_original = environ;
  environ = g_own.data();
}

void giveEnvironmentBack() {
  if (g_original != nullptr) environ = g_original;
}

}  // namespace kelt::base
