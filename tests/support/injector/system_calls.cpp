#include "support/injector/system_calls.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include "support/injector/call_table.h"

namespace kelt::tests {
namespace {

// The errors, each with what lasts where it lasts.
constexpr CallError kFull{ENOSPC, Want::kRoom};
constexpr CallError kBroken{EIO, Want::kDisk};
constexpr CallError kUnsupported{EOPNOTSUPP, Want::kSupport};
constexpr CallError kNoDescriptor{EMFILE, Want::kDescriptors};
constexpr CallError kNoMemory{ENOMEM, Want::kMemory};
constexpr CallError kNoProcess{EAGAIN, Want::kProcesses};
constexpr CallError kNoLock{ENOLCK, Want::kLocks};
constexpr CallError kReset{ECONNRESET, Want::kNetwork};
constexpr CallError kRefused{ECONNREFUSED, Want::kNetwork};
constexpr CallError kClosed{EPIPE, Want::kNetwork};
constexpr CallError kConsoleFull{ENOSPC, Want::kConsole};
constexpr CallError kConsoleBroken{EIO, Want::kConsole};
constexpr CallError kInterrupted{EINTR, Want::kNothing};
constexpr CallError kTimerRefused{EAGAIN, Want::kMemory};

std::string procPath(pid_t process, const std::string& rest) {
  return "/proc/" + std::to_string(process) + rest;
}

std::string linkAt(const std::string& path) {
  std::array<char, 4096> target{};
  const ssize_t length = ::readlink(path.c_str(), target.data(), target.size());
  return length < 0 ? std::string() : std::string(target.data(), static_cast<std::size_t>(length));
}

int descriptor(const SystemCall& call, std::size_t index = 0) {
  return static_cast<int>(call.arguments.at(index));
}

std::string descriptorPath(const SystemCall& call, int fd) {
  return procPath(call.process, "/fd/" + std::to_string(fd));
}

bool bSocket(const SystemCall& call) {
  return linkAt(descriptorPath(call, descriptor(call))).starts_with("socket:");
}

bool bPipe(const SystemCall& call) {
  return linkAt(descriptorPath(call, descriptor(call))).starts_with("pipe:");
}

std::vector<CallError> openErrors(std::uint64_t flags) {
  if ((flags & O_TMPFILE) == O_TMPFILE) return {kFull, kUnsupported, kNoDescriptor, kBroken, kInterrupted};
  if ((flags & O_CREAT) != 0) return {kFull, kNoDescriptor, kBroken, kInterrupted};
  return {kNoDescriptor, kBroken, kNoMemory, kInterrupted};
}

std::vector<CallError> readErrors(const SystemCall& call) {
  if (bSocket(call)) return {kReset, kInterrupted};
  if (bPipe(call)) return {kInterrupted};
  return {kBroken, kInterrupted};
}

std::vector<CallError> writeErrors(const SystemCall& call) {
  const int fd = descriptor(call);
  if (fd == STDOUT_FILENO || fd == STDERR_FILENO) return {kConsoleFull, kConsoleBroken, kInterrupted};
  if (bSocket(call) || bPipe(call)) return {kClosed, kInterrupted};
  return {kFull, kBroken, kInterrupted};
}

std::vector<CallError> controlErrors(const SystemCall& call) {
  switch (descriptor(call, 1)) {
    case F_DUPFD:
    case F_DUPFD_CLOEXEC:
      return {kNoDescriptor};
    case F_SETLKW:
    case F_OFD_SETLKW:
      return {kNoLock, kInterrupted};
    case F_SETLK:
    case F_OFD_SETLK:
      return {kNoLock};
    default:
      return {};
  }
}

/// The path that an argument of the call names, absolute.
std::string pathArgument(const SystemCall& call, const Target& target) {
  std::string path = textAt(call.process, call.arguments.at(static_cast<std::size_t>(target.path)));
  if (path.starts_with('/')) return path;
  const int directory = target.directory < 0 ? AT_FDCWD : descriptor(call, static_cast<std::size_t>(target.directory));
  const std::string from = directory == AT_FDCWD ? procPath(call.process, "/cwd") : descriptorPath(call, directory);
  return linkAt(from) + "/" + path;
}

/// Where the flags of open and of openat stand.
constexpr std::array kOpenFlags = {1, 2};

bool bCreates(const SystemCall& call) {
  const std::uint64_t flags =
      call.arguments.at(static_cast<std::size_t>(kOpenFlags.at(call.number == SYS_openat ? 1 : 0)));
  return call.number == SYS_creat || ((flags & O_CREAT) != 0 && (flags & O_TMPFILE) != O_TMPFILE);
}

struct ErrorName {
  int number;
  const char* name;
};

constexpr std::array kErrorNames = {
    ErrorName{ENOSPC, "ENOSPC"},         ErrorName{EIO, "EIO"},
    ErrorName{EOPNOTSUPP, "EOPNOTSUPP"}, ErrorName{EMFILE, "EMFILE"},
    ErrorName{ENOMEM, "ENOMEM"},         ErrorName{EAGAIN, "EAGAIN"},
    ErrorName{ENOLCK, "ENOLCK"},         ErrorName{EPIPE, "EPIPE"},
    ErrorName{ECONNRESET, "ECONNRESET"}, ErrorName{ECONNREFUSED, "ECONNREFUSED"},
    ErrorName{EINTR, "EINTR"},
};

}  // namespace

std::vector<CallError> errorsOf(const SystemCall& call) {
  switch (kindOf(call.number)) {
    case Kind::kOpen:
      return openErrors(call.number == SYS_creat ? O_CREAT : call.arguments[1]);
    case Kind::kOpenAt:
      return openErrors(call.arguments[2]);
    case Kind::kRead:
      return readErrors(call);
    case Kind::kWrite:
      return writeErrors(call);
    case Kind::kCopy:
    case Kind::kName:
      return {kFull, kBroken};
    case Kind::kAttribute:
      return {kBroken, kFull};
    case Kind::kSync:
    case Kind::kRemove:
    case Kind::kList:
      return {kBroken};
    case Kind::kExamine:
      return {kBroken, kNoMemory};
    case Kind::kDescriptor:
      return {kNoDescriptor, kNoMemory};
    case Kind::kMemory:
    case Kind::kBreak:
      return {kNoMemory};
    case Kind::kFork:
      return {kNoProcess, kNoMemory};
    case Kind::kExecute:
      return {kNoMemory, kBroken};
    case Kind::kWait:
    case Kind::kSleep:
    case Kind::kRandom:
      return {kInterrupted};
    case Kind::kPoll:
      return {kNoMemory, kInterrupted};
    case Kind::kConnect:
      return {kRefused, kInterrupted};
    case Kind::kReceive:
      return {kReset, kInterrupted};
    case Kind::kSend:
      return {kClosed, kInterrupted};
    case Kind::kControl:
      return controlErrors(call);
    case Kind::kLock:
      return {kNoLock, kInterrupted};
    case Kind::kClose:
      return {kBroken, kInterrupted};
    case Kind::kTimer:
      return {kTimerRefused};
    case Kind::kNever:
      break;
  }
  return {};
}

std::string madeVisible(const SystemCall& call) {
  const Row* const row = rowOf(call.number);
  if (row == nullptr) return {};
  switch (row->kind) {
    case Kind::kOpen:
    case Kind::kOpenAt:
      return bCreates(call) ? pathArgument(call, row->target) : std::string();
    case Kind::kName:
    case Kind::kAttribute:
      return row->target.path < 0 ? descriptorPath(call, descriptor(call)) : pathArgument(call, row->target);
    case Kind::kWrite:
      return descriptor(call) <= STDERR_FILENO ? std::string() : descriptorPath(call, descriptor(call));
    case Kind::kCopy:
      return descriptorPath(call, descriptor(call, call.number == SYS_sendfile ? 0 : 2));
    default:
      return {};
  }
}

std::string errorName(int number) {
  const auto* const found = std::find_if(kErrorNames.begin(), kErrorNames.end(),
                                         [&](const ErrorName& entry) { return entry.number == number; });
  return found == kErrorNames.end() ? std::to_string(number) : found->name;
}

int errorNumber(std::string_view name) {
  const auto* const found =
      std::find_if(kErrorNames.begin(), kErrorNames.end(), [&](const ErrorName& entry) { return entry.name == name; });
  return found == kErrorNames.end() ? 0 : found->number;
}

std::vector<VisibleCall> callsThatMakeVisible() {
  std::vector<VisibleCall> calls;
  for (const Row& row : rows()) {
    switch (row.kind) {
      case Kind::kOpen:
      case Kind::kOpenAt:
        calls.push_back({row.number, row.number == SYS_creat ? -1 : kOpenFlags.at(row.number == SYS_openat ? 1 : 0)});
        break;
      case Kind::kName:
      case Kind::kAttribute:
      case Kind::kWrite:
      case Kind::kCopy:
        calls.push_back({row.number, -1});
        break;
      default:
        break;
    }
  }
  return calls;
}

std::string textAt(pid_t process, std::uint64_t address) {
  std::string text;
  std::array<char, 256> piece{};
  while (text.size() < 4096) {
    // Up to the end of the page: the next one may not be there.
    const std::size_t length = std::min<std::size_t>(piece.size(), 4096 - (address & 4095U));
    iovec to{piece.data(), length};
    iovec from{reinterpret_cast<void*>(address), length};
    const ssize_t got = ::process_vm_readv(process, &to, 1, &from, 1, 0);
    if (got <= 0) break;
    const std::string_view gotten(piece.data(), static_cast<std::size_t>(got));
    text.append(gotten.substr(0, gotten.find('\0')));
    if (gotten.find('\0') != std::string_view::npos) return text;
    address += static_cast<std::uint64_t>(got);
  }
  return text;
}

}  // namespace kelt::tests
