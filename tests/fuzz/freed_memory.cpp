#include "fuzz/freed_memory.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <malloc.h>
#include <string_view>

#ifndef __has_feature  // clang's; GCC has a macro instead
#define __has_feature(feature) 0
#endif
#if defined(__SANITIZE_ADDRESS__) || __has_feature(address_sanitizer)
#define KELT_ADDRESS_SANITIZER
// From the sanitizers' allocator_interface.h, which GCC 12 does not bring.
extern "C" {
int __sanitizer_install_malloc_and_free_hooks(void (*onMalloc)(const volatile void*, std::size_t),
                                              void (*onFree)(const volatile void*));
std::size_t __sanitizer_get_allocated_size(const volatile void* block);
}
#endif

namespace {

const std::vector<std::string>* sought = nullptr;
std::size_t blocks = 0;

/// Takes no memory: it runs inside the memory management.
void look(const void* block, std::size_t size) {
  const std::string_view content(static_cast<const char*>(block), size);
  const auto bHeld = [&](const std::string& sequence) { return content.find(sequence) != std::string_view::npos; };
  if (std::any_of(sought->begin(), sought->end(), bHeld)) ++blocks;
}

}  // namespace

#ifdef KELT_ADDRESS_SANITIZER

namespace {

void onMalloc(const volatile void* /*block*/, std::size_t /*size*/) {}

void onFree(const volatile void* block) {
  if (sought == nullptr || block == nullptr) return;
  const void* const plain = const_cast<const void*>(block);
  look(plain, __sanitizer_get_allocated_size(block));
}

void startLooking() {
  static const bool bInstalled = __sanitizer_install_malloc_and_free_hooks(onMalloc, onFree) != 0;
  if (!bInstalled) std::abort();
}

}  // namespace

#else

// These stand before the library's own.
extern "C" {

void __libc_free(void* block);
void* __libc_realloc(void* block, std::size_t size);

void free(void* block) {
  if (sought != nullptr && block != nullptr) look(block, ::malloc_usable_size(block));
  __libc_free(block);
}

// It may release the block; one that holds a secret is not to come here at all.
void* realloc(void* block, std::size_t size) {
  if (sought != nullptr && block != nullptr) look(block, ::malloc_usable_size(block));
  return __libc_realloc(block, size);
}

}  // extern "C"

namespace {
void startLooking() {}
}  // namespace

#endif

namespace kelt::tests {

FreedMemory::FreedMemory(const std::vector<std::string>& sequences) {
  startLooking();
  blocks = 0;
  sought = &sequences;
}

FreedMemory::~FreedMemory() {
  sought = nullptr;
}

std::size_t FreedMemory::found() const {
  return blocks;
}

}  // namespace kelt::tests
