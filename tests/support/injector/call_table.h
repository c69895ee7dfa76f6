#pragma once
// The table of system calls by which support/injector/system_calls.h answers: what kind each of them is.

#include <span>

namespace kelt::tests {

/// What the errors of a call depend on. The argument that is its descriptor or path is the first one, or the second of
/// the calls whose name ends in "at".
enum class Kind {
  kNever,  // fails only for mistakes of the caller
  kOpen,
  kOpenAt,
  kRead,
  kWrite,
  kCopy,  // to a descriptor, which is the argument of that index
  kSync,
  kName,  // makes a name or a directory: the last path is the new one
  kRemove,
  kAttribute,  // changes mode, owner, times or attributes
  kExamine,
  kList,
  kDescriptor,
  kMemory,
  kBreak,
  kFork,
  kExecute,
  kWait,
  kPoll,
  kConnect,
  kReceive,
  kSend,
  kControl,
  kLock,
  kClose,
  kSleep,
  kRandom,
  kTimer,
};

/// Where the path stands that a call makes or changes: index of its directory's descriptor (-1: none) and of the path
/// (-1: the first argument is a descriptor).
struct Target {
  int directory = -1;
  int path = -1;
};

/// A call of x86-64 Linux.
struct Row {
  long number;
  const char* name;
  Kind kind;
  Target target = {};
};

/// All calls that the table has.
[[nodiscard]] std::span<const Row> rows();

/// The row of a call; null for one that the table does not have.
[[nodiscard]] const Row* rowOf(long call);

/// The kind of a call; kNever for one that the table does not have.
[[nodiscard]] Kind kindOf(long call);

}  // namespace kelt::tests
