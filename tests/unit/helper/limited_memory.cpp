#include "limited_memory.h"

#include <cstdint>
#include <cstdlib>
#include <new>

namespace {

std::size_t g_largestBlock = SIZE_MAX;

}  // namespace

void kelt::tests::limitBlocks(std::size_t bytes) {
  g_largestBlock = bytes;
}

void* operator new(std::size_t size) {
  void* block = size <= g_largestBlock ? std::malloc(size == 0 ? 1 : size) : nullptr;
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

void operator delete(void* block) noexcept {
  std::free(block);
}

void operator delete(void* block, std::size_t /*size*/) noexcept {
  std::free(block);
}
