// Preloaded into a program: lets one of its allocations fail, and counts all.
//
// Allocations are counted from main on, in each process that forks from the program by itself, as allocation_record.h
// tells. Programs that it starts get an environment without a trace of this.

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <new>
#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>
#include <unwind.h>

#include "support/injector/allocation_record.h"

// What glibc exports for whoever replaces its allocator.
extern "C" {
void* __libc_malloc(std::size_t size);                           // NOLINT(bugprone-reserved-identifier)
void* __libc_calloc(std::size_t count, std::size_t size);        // NOLINT(bugprone-reserved-identifier)
void* __libc_realloc(void* memory, std::size_t size);            // NOLINT(bugprone-reserved-identifier)
void* __libc_memalign(std::size_t alignment, std::size_t size);  // NOLINT(bugprone-reserved-identifier)
}

namespace {

using kelt::tests::AllocationCount;
using kelt::tests::AllocationRecord;

AllocationRecord* record = nullptr;
AllocationCount* own = nullptr;  // null before main
std::array<char, 28> process{"0"};
unsigned forks = 0;
std::array<char, 28> failingProcess{};
unsigned long failing = 0;
unsigned long made = 0;

// The ways that allocations came by so far, as hashes of their return addresses.
bool bNoteWays = false;
bool bUnwinding = false;
std::array<std::uint64_t, 65536> ways{};

_Unwind_Reason_Code addFrame(_Unwind_Context* context, void* hash) {
  auto& value = *static_cast<std::uint64_t*>(hash);
  value = (value ^ _Unwind_GetIP(context)) * 1099511628211U;  // FNV
  return _URC_NO_REASON;
}

/// Whether no allocation came by the present way before.
bool bNewWay() {
  std::uint64_t hash = 14695981039346656037U;
  bUnwinding = true;
  _Unwind_Backtrace(addFrame, &hash);
  bUnwinding = false;
  for (std::size_t probe = 0; probe < ways.size(); ++probe) {
    std::uint64_t& slot = ways.at((hash + probe) % ways.size());
    if (slot == hash) return false;
    if (slot == 0) {
      slot = hash;
      return true;
    }
  }
  return false;
}

void noteWay() {
  if (!bNewWay()) return;
  const std::uint32_t index = record->ways.fetch_add(1);
  if (index >= record->newWays.size()) return;
  record->newWays.at(index) = {static_cast<std::uint32_t>(own - record->counts.data()),
                               static_cast<std::uint32_t>(made)};
}

/// Whether the allocation that is being made fails.
bool bFails() {
  if (own == nullptr || bUnwinding) return false;
  ++made;
  if (bNoteWays) noteWay();
  own->count.store(static_cast<std::uint32_t>(made), std::memory_order_relaxed);
  if (made != failing || std::strcmp(process.data(), failingProcess.data()) != 0) return false;
  record->hits.fetch_add(1);
  errno = ENOMEM;
  return true;
}

void beginCounting() {
  if (record == nullptr) return;
  const std::uint32_t index = record->processes.fetch_add(1);
  if (index >= record->counts.size()) return;
  AllocationCount& count = record->counts[index];
  std::memcpy(count.process.data(), process.data(), process.size());
  made = 0;
  own = &count;
}

void nameChild() {
  if (own == nullptr) return;
  std::array<char, 12> digits{};
  std::size_t length = 0;
  for (unsigned rest = forks; rest > 0; rest /= 10)
    digits.at(length++) = static_cast<char>('0' + rest % 10);
  std::size_t end = std::strlen(process.data());
  if (end + length + 2 > process.size()) return;
  process.at(end++) = '.';
  while (length > 0)
    process.at(end++) = digits.at(--length);
  forks = 0;
  own = nullptr;
  beginCounting();
}

void countFork() {
  ++forks;
}

void readFailing(const char* text) {
  const char* const colon = text == nullptr ? nullptr : std::strchr(text, ':');
  if (colon == nullptr || static_cast<std::size_t>(colon - text) >= failingProcess.size()) return;
  std::memcpy(failingProcess.data(), text, static_cast<std::size_t>(colon - text));
  failing = std::strtoul(colon + 1, nullptr, 10);
}

void mapRecord(const char* path) {
  const int fd = path == nullptr ? -1 : ::open(path, O_RDWR | O_CLOEXEC);
  if (fd < 0) return;
  void* const memory = ::mmap(nullptr, sizeof(AllocationRecord), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  ::close(fd);
  if (memory != MAP_FAILED) record = static_cast<AllocationRecord*>(memory);
}

__attribute__((constructor)) void setUp() {
  readFailing(std::getenv(kelt::tests::kFailVariable));
  mapRecord(std::getenv(kelt::tests::kRecordVariable));
  bNoteWays = std::getenv(kelt::tests::kWaysVariable) != nullptr;
  for (const char* name :
       {"LD_PRELOAD", kelt::tests::kFailVariable, kelt::tests::kRecordVariable, kelt::tests::kWaysVariable})
    ::unsetenv(name);
  ::pthread_atfork(countFork, nullptr, nameChild);
}

using Main = int (*)(int, char**, char**);
Main programMain = nullptr;

int countedMain(int argc, char** argv, char** environment) {
  beginCounting();
  return programMain(argc, argv, environment);
}

}  // namespace

extern "C" {

#pragma GCC visibility push(default)

void* malloc(std::size_t size) {
  return bFails() ? nullptr : __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) {
  return bFails() ? nullptr : __libc_calloc(count, size);
}

void* realloc(void* memory, std::size_t size) {
  return bFails() ? nullptr : __libc_realloc(memory, size);
}

void* aligned_alloc(std::size_t alignment, std::size_t size) {
  return bFails() ? nullptr : __libc_memalign(alignment, size);
}

void* memalign(std::size_t alignment, std::size_t size) {
  return bFails() ? nullptr : __libc_memalign(alignment, size);
}

int posix_memalign(void** memory, std::size_t alignment, std::size_t size) {
  void* const got = bFails() ? nullptr : __libc_memalign(alignment, size);
  if (got == nullptr) return ENOMEM;
  *memory = got;
  return 0;
}

// NOLINTNEXTLINE(bugprone-reserved-identifier): the name that the program's start calls
int __libc_start_main(Main main, int argc, char** argv, void (*init)(), void (*fini)(), void (*rtldFini)(),
                      void* stackEnd) {
  using Start = int (*)(Main, int, char**, void (*)(), void (*)(), void (*)(), void*);
  programMain = main;
  const auto next = reinterpret_cast<Start>(::dlsym(RTLD_NEXT, "__libc_start_main"));
  return next(countedMain, argc, argv, init, fini, rtldFini, stackEnd);
}

#pragma GCC visibility pop

}  // extern "C"
