#include "base/secret.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <malloc.h>

namespace kelt::base {
namespace {

/// More than a transfer with its cryptography takes.
constexpr std::size_t kStackDepth = std::size_t{64} * 1024;

template <typename String>
void wipeString(String& text) {
  // All of the memory: what was longer before left its end there. Up to its capacity a string asks for no other.
  text.resize(text.capacity());
  wipe(text.data(), text.size() * sizeof(typename String::value_type));
  text.clear();
}

}  // namespace

void wipe(void* memory, std::size_t bytes) {
  if (memory != nullptr) ::explicit_bzero(memory, bytes);
}

__attribute__((noinline)) void wipeUnusedStack() {
  std::array<unsigned char, kStackDepth> unused;  // NOLINT(cppcoreguidelines-pro-type-member-init): wiped as it is
  wipe(unused.data(), unused.size());
}

void wipe(std::string& text) {
  wipeString(text);
}

void wipe(std::wstring& text) {
  wipeString(text);
}

// A library asks for and returns raw blocks here; ownership is its own.
// NOLINTBEGIN(cppcoreguidelines-no-malloc,cppcoreguidelines-owning-memory)

void wipingFree(void* block) {
  if (block == nullptr) return;
  wipe(block, ::malloc_usable_size(block));
  std::free(block);
}

void* wipingRealloc(void* block, std::size_t bytes) {
  // Never in place: realloc may move the block, and gives the old one back as it is.
  void* moved = std::malloc(bytes);
  if (moved == nullptr || block == nullptr) return moved;
  std::memcpy(moved, block, std::min(bytes, ::malloc_usable_size(block)));
  wipingFree(block);
  return moved;
}

// NOLINTEND(cppcoreguidelines-no-malloc,cppcoreguidelines-owning-memory)

}  // namespace kelt::base
