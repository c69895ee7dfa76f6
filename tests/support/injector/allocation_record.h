#pragma once
// What the preloaded allocator and whoever preloads it share: a file that both have mapped.

#include <array>
#include <atomic>
#include <cstdint>

namespace kelt::tests {

/// How many allocations a process of the run made; processes are named as in injector.h.
struct AllocationCount {
  std::array<char, 28> process{};
  std::atomic<std::uint32_t> count{0};
};

/// The first allocation that comes by a way through the program, that is, from a stack of calls that none came from
/// before.
struct NewWay {
  std::uint32_t process = 0;  ///< index in AllocationRecord::counts
  std::uint32_t allocation = 0;
};

/// All zero at first.
struct AllocationRecord {
  std::atomic<std::uint32_t> hits{0};  ///< allocations that failed
  std::atomic<std::uint32_t> processes{0};
  std::array<AllocationCount, 62> counts;
  std::atomic<std::uint32_t> ways{0};
  std::array<NewWay, 32768> newWays;  ///< only where kWaysVariable asks for them
};

/// Environment of the program: the path of the record, and "PROCESS:N" for the allocation that fails (none without it).
inline constexpr const char* kRecordVariable = "KELT_ALLOCATION_RECORD";
inline constexpr const char* kFailVariable = "KELT_FAIL_ALLOCATION";
inline constexpr const char* kWaysVariable = "KELT_ALLOCATION_WAYS";

}  // namespace kelt::tests
