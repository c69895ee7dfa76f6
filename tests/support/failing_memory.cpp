#include "support/failing_memory.h"

#include <cstdlib>
#include <new>

namespace {

std::size_t failingSize = 0;
int countdown = 0;  // 0: none fails
int unthrowingCountdown = 0;

bool bReachesZero(int& count) {
  return count > 0 && --count == 0;
}

void* allocate(std::size_t size) {
  return size == failingSize && bReachesZero(countdown) ? nullptr : std::malloc(size);
}

}  // namespace

// The allocation functions of the whole test program.
void* operator new(std::size_t size) {
  void* const memory = allocate(size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return bReachesZero(unthrowingCountdown) ? nullptr : allocate(size);
}
void* operator new[](std::size_t size) {
  return ::operator new(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return allocate(size);
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
void operator delete(void* memory, const std::nothrow_t&) noexcept {
  std::free(memory);
}
void operator delete[](void* memory) noexcept {
  std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
  std::free(memory);
}
void operator delete[](void* memory, const std::nothrow_t&) noexcept {
  std::free(memory);
}

namespace kelt::tests {

void failAllocation(std::size_t size, int which) {
  failingSize = size;
  countdown = which;
}

void failUnthrowing(int which) {
  unthrowingCountdown = which;
}

}  // namespace kelt::tests
