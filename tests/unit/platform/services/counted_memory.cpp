#include "services/counted_memory.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <malloc.h>
#include <new>

namespace {

std::atomic<std::size_t> held = 0;
std::atomic<std::size_t> peak = 0;

void* countedAllocation(std::size_t size) {
  void* const block = std::malloc(size == 0 ? 1 : size);
  if (block == nullptr) throw std::bad_alloc();
  held += ::malloc_usable_size(block);
  peak = std::max(peak.load(), held.load());
  return block;
}

void countedRelease(void* block) {
  if (block != nullptr) held -= ::malloc_usable_size(block);
  std::free(block);
}

}  // namespace

namespace kelt::tests {

std::size_t heldMemory() {
  return held;
}

std::size_t peakMemory() {
  return peak;
}

void forgetPeak() {
  peak = held.load();
}

}  // namespace kelt::tests

void* operator new(std::size_t size) {
  return countedAllocation(size);
}

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  try {
    return countedAllocation(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

void operator delete(void* block) noexcept {
  countedRelease(block);
}

void operator delete(void* block, std::size_t /*size*/) noexcept {
  countedRelease(block);
}
