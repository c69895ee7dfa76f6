#pragma once
// The system calls of x86-64 Linux by name, and the errors that each of them can really give.

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace kelt::tests {

/// What is wanting when a call fails. Where it goes on wanting, every later call that needs it fails alike.
enum class Want {
  kRoom,         ///< a file system is full
  kDisk,         ///< a file system gives errors
  kSupport,      ///< a file system does not know the operation
  kDescriptors,  ///< the process has as many descriptors as it may
  kMemory,       ///< the system has no memory for it
  kProcesses,    ///< the process table is full
  kLocks,        ///< the system has no room for another lock
  kConsole,      ///< what standard output or error leads to takes nothing more
  kNetwork,      ///< the connection is gone
  kNothing,      ///< a signal came in between; this never lasts
};

struct CallError {
  int number;  ///< as of errno
  Want want;
  bool operator==(const CallError&) const = default;
};

/// A system call that a process is about to make.
struct SystemCall {
  pid_t process = 0;
  long number = 0;
  std::array<std::uint64_t, 6> arguments{};
};

/// "openat"; "call 999" for one that the table does not have.
[[nodiscard]] std::string nameOf(long call);

/// -1 for a name that the table does not have.
[[nodiscard]] long callNumber(std::string_view name);

/// The errors that this call can give with these arguments, the worst first; none for calls that cannot fail. Looks at
/// what its descriptor is, in /proc of the calling process.
[[nodiscard]] std::vector<CallError> errorsOf(const SystemCall& call);

/// What the call makes visible to others, as a path that can be examined once it is done: the name that it makes, or
/// the descriptor that it writes to or whose mode it changes. Empty for other calls.
[[nodiscard]] std::string madeVisible(const SystemCall& call);

/// "ENOSPC"; the number where it has no name.
[[nodiscard]] std::string errorName(int number);

/// 0 for an unknown name.
[[nodiscard]] int errorNumber(std::string_view name);

/// The kind of call, as far as whoever injects faults has to know it.
[[nodiscard]] bool bOfFiles(long call);
[[nodiscard]] bool bSleep(long call);
[[nodiscard]] bool bClose(long call);
[[nodiscard]] bool bBreak(long call);

/// The numbers of all calls that errorsOf, madeVisible and bSleep have something to say about, whatever their
/// arguments.
[[nodiscard]] std::vector<long> callsThatCanFail();
[[nodiscard]] std::vector<long> callsThatSleep();

struct VisibleCall {
  long number;
  int flags;  ///< index of the argument that says, by O_CREAT, whether it does; -1 where it always does
};
[[nodiscard]] std::vector<VisibleCall> callsThatMakeVisible();

/// Text of the process at this address, up to its zero.
[[nodiscard]] std::string textAt(pid_t process, std::uint64_t address);

}  // namespace kelt::tests
