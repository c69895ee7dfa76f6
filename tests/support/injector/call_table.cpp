#include "support/injector/call_table.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <sys/syscall.h>

#include "support/injector/system_calls.h"

namespace kelt::tests {
namespace {

constexpr std::array kRows = {
    Row{SYS_open, "open", Kind::kOpen, {-1, 0}},
    Row{SYS_creat, "creat", Kind::kOpen, {-1, 0}},
    Row{SYS_openat, "openat", Kind::kOpenAt, {0, 1}},
    Row{SYS_read, "read", Kind::kRead},
    Row{SYS_pread64, "pread64", Kind::kRead},
    Row{SYS_readv, "readv", Kind::kRead},
    Row{SYS_preadv, "preadv", Kind::kRead},
    Row{SYS_write, "write", Kind::kWrite},
    Row{SYS_pwrite64, "pwrite64", Kind::kWrite},
    Row{SYS_writev, "writev", Kind::kWrite},
    Row{SYS_pwritev, "pwritev", Kind::kWrite},
    Row{SYS_ftruncate, "ftruncate", Kind::kWrite},
    Row{SYS_truncate, "truncate", Kind::kName, {-1, 0}},
    Row{SYS_fallocate, "fallocate", Kind::kWrite},
    Row{SYS_sendfile, "sendfile", Kind::kCopy},
    Row{SYS_copy_file_range, "copy_file_range", Kind::kCopy},
    Row{SYS_splice, "splice", Kind::kCopy},
    Row{SYS_fsync, "fsync", Kind::kSync},
    Row{SYS_fdatasync, "fdatasync", Kind::kSync},
    Row{SYS_sync_file_range, "sync_file_range", Kind::kSync},
    Row{SYS_syncfs, "syncfs", Kind::kSync},
    Row{SYS_rename, "rename", Kind::kName, {-1, 1}},
    Row{SYS_renameat, "renameat", Kind::kName, {2, 3}},
    Row{SYS_renameat2, "renameat2", Kind::kName, {2, 3}},
    Row{SYS_link, "link", Kind::kName, {-1, 1}},
    Row{SYS_linkat, "linkat", Kind::kName, {2, 3}},
    Row{SYS_symlink, "symlink", Kind::kName, {-1, 1}},
    Row{SYS_symlinkat, "symlinkat", Kind::kName, {1, 2}},
    Row{SYS_mkdir, "mkdir", Kind::kName, {-1, 0}},
    Row{SYS_mkdirat, "mkdirat", Kind::kName, {0, 1}},
    Row{SYS_mknod, "mknod", Kind::kName, {-1, 0}},
    Row{SYS_mknodat, "mknodat", Kind::kName, {0, 1}},
    Row{SYS_unlink, "unlink", Kind::kRemove},
    Row{SYS_unlinkat, "unlinkat", Kind::kRemove},
    Row{SYS_rmdir, "rmdir", Kind::kRemove},
    Row{SYS_chmod, "chmod", Kind::kAttribute, {-1, 0}},
    Row{SYS_fchmod, "fchmod", Kind::kAttribute},
    Row{SYS_fchmodat, "fchmodat", Kind::kAttribute, {0, 1}},
    Row{SYS_chown, "chown", Kind::kAttribute, {-1, 0}},
    Row{SYS_lchown, "lchown", Kind::kAttribute, {-1, 0}},
    Row{SYS_fchown, "fchown", Kind::kAttribute},
    Row{SYS_fchownat, "fchownat", Kind::kAttribute, {0, 1}},
    Row{SYS_utimensat, "utimensat", Kind::kAttribute, {0, 1}},
    Row{SYS_setxattr, "setxattr", Kind::kAttribute, {-1, 0}},
    Row{SYS_lsetxattr, "lsetxattr", Kind::kAttribute, {-1, 0}},
    Row{SYS_fsetxattr, "fsetxattr", Kind::kAttribute},
    Row{SYS_removexattr, "removexattr", Kind::kAttribute, {-1, 0}},
    Row{SYS_lremovexattr, "lremovexattr", Kind::kAttribute, {-1, 0}},
    Row{SYS_fremovexattr, "fremovexattr", Kind::kAttribute},
    Row{SYS_stat, "stat", Kind::kExamine},
    Row{SYS_lstat, "lstat", Kind::kExamine},
    Row{SYS_fstat, "fstat", Kind::kExamine},
    Row{SYS_newfstatat, "newfstatat", Kind::kExamine},
    Row{SYS_statx, "statx", Kind::kExamine},
    Row{SYS_statfs, "statfs", Kind::kExamine},
    Row{SYS_fstatfs, "fstatfs", Kind::kExamine},
    Row{SYS_access, "access", Kind::kExamine},
    Row{SYS_faccessat, "faccessat", Kind::kExamine},
    Row{SYS_faccessat2, "faccessat2", Kind::kExamine},
    Row{SYS_readlink, "readlink", Kind::kExamine},
    Row{SYS_readlinkat, "readlinkat", Kind::kExamine},
    Row{SYS_getxattr, "getxattr", Kind::kExamine},
    Row{SYS_lgetxattr, "lgetxattr", Kind::kExamine},
    Row{SYS_fgetxattr, "fgetxattr", Kind::kExamine},
    Row{SYS_listxattr, "listxattr", Kind::kExamine},
    Row{SYS_llistxattr, "llistxattr", Kind::kExamine},
    Row{SYS_flistxattr, "flistxattr", Kind::kExamine},
    Row{SYS_getcwd, "getcwd", Kind::kExamine},
    Row{SYS_chdir, "chdir", Kind::kExamine},
    Row{SYS_fchdir, "fchdir", Kind::kExamine},
    Row{SYS_getdents64, "getdents64", Kind::kList},
    Row{SYS_dup, "dup", Kind::kDescriptor},
    Row{SYS_pipe, "pipe", Kind::kDescriptor},
    Row{SYS_pipe2, "pipe2", Kind::kDescriptor},
    Row{SYS_eventfd2, "eventfd2", Kind::kDescriptor},
    Row{SYS_epoll_create1, "epoll_create1", Kind::kDescriptor},
    Row{SYS_memfd_create, "memfd_create", Kind::kDescriptor},
    Row{SYS_signalfd4, "signalfd4", Kind::kDescriptor},
    Row{SYS_timerfd_create, "timerfd_create", Kind::kDescriptor},
    Row{SYS_inotify_init1, "inotify_init1", Kind::kDescriptor},
    Row{SYS_pidfd_open, "pidfd_open", Kind::kDescriptor},
    Row{SYS_socket, "socket", Kind::kDescriptor},
    Row{SYS_socketpair, "socketpair", Kind::kDescriptor},
    Row{SYS_mmap, "mmap", Kind::kMemory},
    Row{SYS_mprotect, "mprotect", Kind::kMemory},
    Row{SYS_mremap, "mremap", Kind::kMemory},
    Row{SYS_mlock, "mlock", Kind::kMemory},
    Row{SYS_brk, "brk", Kind::kBreak},
    Row{SYS_clone, "clone", Kind::kFork},
    Row{SYS_clone3, "clone3", Kind::kFork},
    Row{SYS_fork, "fork", Kind::kFork},
    Row{SYS_vfork, "vfork", Kind::kFork},
    Row{SYS_execve, "execve", Kind::kExecute},
    Row{SYS_execveat, "execveat", Kind::kExecute},
    Row{SYS_wait4, "wait4", Kind::kWait},
    Row{SYS_waitid, "waitid", Kind::kWait},
    Row{SYS_poll, "poll", Kind::kPoll},
    Row{SYS_ppoll, "ppoll", Kind::kPoll},
    Row{SYS_select, "select", Kind::kPoll},
    Row{SYS_pselect6, "pselect6", Kind::kPoll},
    Row{SYS_epoll_wait, "epoll_wait", Kind::kPoll},
    Row{SYS_epoll_pwait, "epoll_pwait", Kind::kPoll},
    Row{SYS_connect, "connect", Kind::kConnect},
    Row{SYS_recvfrom, "recvfrom", Kind::kReceive},
    Row{SYS_recvmsg, "recvmsg", Kind::kReceive},
    Row{SYS_recvmmsg, "recvmmsg", Kind::kReceive},
    Row{SYS_sendto, "sendto", Kind::kSend},
    Row{SYS_sendmsg, "sendmsg", Kind::kSend},
    Row{SYS_sendmmsg, "sendmmsg", Kind::kSend},
    Row{SYS_fcntl, "fcntl", Kind::kControl},
    Row{SYS_flock, "flock", Kind::kLock},
    Row{SYS_close, "close", Kind::kClose},
    Row{SYS_nanosleep, "nanosleep", Kind::kSleep},
    Row{SYS_clock_nanosleep, "clock_nanosleep", Kind::kSleep},
    Row{SYS_getrandom, "getrandom", Kind::kRandom},
    Row{SYS_timer_create, "timer_create", Kind::kTimer},
    Row{SYS_rt_sigaction, "rt_sigaction", Kind::kNever},
    Row{SYS_rt_sigprocmask, "rt_sigprocmask", Kind::kNever},
    Row{SYS_rt_sigreturn, "rt_sigreturn", Kind::kNever},
    Row{SYS_rt_sigtimedwait, "rt_sigtimedwait", Kind::kWait},
    Row{SYS_rt_sigpending, "rt_sigpending", Kind::kNever},
    Row{SYS_setitimer, "setitimer", Kind::kNever},
    Row{SYS_alarm, "alarm", Kind::kNever},
    Row{SYS_munmap, "munmap", Kind::kNever},
    Row{SYS_madvise, "madvise", Kind::kNever},
    Row{SYS_lseek, "lseek", Kind::kNever},
    Row{SYS_fadvise64, "fadvise64", Kind::kNever},
    Row{SYS_dup2, "dup2", Kind::kNever},
    Row{SYS_dup3, "dup3", Kind::kNever},
    Row{SYS_ioctl, "ioctl", Kind::kNever},
    Row{SYS_setsockopt, "setsockopt", Kind::kNever},
    Row{SYS_getsockopt, "getsockopt", Kind::kNever},
    Row{SYS_getsockname, "getsockname", Kind::kNever},
    Row{SYS_getpeername, "getpeername", Kind::kNever},
    Row{SYS_bind, "bind", Kind::kNever},
    Row{SYS_shutdown, "shutdown", Kind::kNever},
    Row{SYS_umask, "umask", Kind::kNever},
    Row{SYS_kill, "kill", Kind::kNever},
    Row{SYS_tgkill, "tgkill", Kind::kNever},
    Row{SYS_exit, "exit", Kind::kNever},
    Row{SYS_exit_group, "exit_group", Kind::kNever},
    Row{SYS_getpid, "getpid", Kind::kNever},
    Row{SYS_gettid, "gettid", Kind::kNever},
    Row{SYS_getppid, "getppid", Kind::kNever},
    Row{SYS_getuid, "getuid", Kind::kNever},
    Row{SYS_geteuid, "geteuid", Kind::kNever},
    Row{SYS_getgid, "getgid", Kind::kNever},
    Row{SYS_getegid, "getegid", Kind::kNever},
    Row{SYS_setsid, "setsid", Kind::kNever},
    Row{SYS_getsid, "getsid", Kind::kNever},
    Row{SYS_setpgid, "setpgid", Kind::kNever},
    Row{SYS_getpgrp, "getpgrp", Kind::kNever},
    Row{SYS_prctl, "prctl", Kind::kNever},
    Row{SYS_arch_prctl, "arch_prctl", Kind::kNever},
    Row{SYS_prlimit64, "prlimit64", Kind::kNever},
    Row{SYS_getrlimit, "getrlimit", Kind::kNever},
    Row{SYS_setrlimit, "setrlimit", Kind::kNever},
    Row{SYS_futex, "futex", Kind::kNever},
    Row{SYS_set_tid_address, "set_tid_address", Kind::kNever},
    Row{SYS_set_robust_list, "set_robust_list", Kind::kNever},
    Row{SYS_rseq, "rseq", Kind::kNever},
    Row{SYS_sched_yield, "sched_yield", Kind::kNever},
    Row{SYS_sched_getaffinity, "sched_getaffinity", Kind::kNever},
    Row{SYS_clock_gettime, "clock_gettime", Kind::kNever},
    Row{SYS_gettimeofday, "gettimeofday", Kind::kNever},
    Row{SYS_time, "time", Kind::kNever},
    Row{SYS_uname, "uname", Kind::kNever},
    Row{SYS_sysinfo, "sysinfo", Kind::kNever},
    Row{SYS_close_range, "close_range", Kind::kNever},
};

}  // namespace

std::span<const Row> rows() {
  return kRows;
}

const Row* rowOf(long call) {
  constexpr std::size_t kKnown = 512;
  static const auto kByNumber = [] {
    std::array<const Row*, kKnown> found{};
    for (const Row& row : kRows)
      found.at(static_cast<std::size_t>(row.number)) = &row;
    return found;
  }();
  return call >= 0 && static_cast<std::size_t>(call) < kKnown ? kByNumber.at(static_cast<std::size_t>(call)) : nullptr;
}

Kind kindOf(long call) {
  const Row* const row = rowOf(call);
  return row == nullptr ? Kind::kNever : row->kind;
}

std::string nameOf(long call) {
  const Row* const row = rowOf(call);
  return row == nullptr ? "call " + std::to_string(call) : row->name;
}

long callNumber(std::string_view name) {
  const auto* const row =
      std::find_if(kRows.begin(), kRows.end(), [&](const Row& candidate) { return candidate.name == name; });
  return row == kRows.end() ? -1 : row->number;
}

bool bOfFiles(long call) {
  switch (kindOf(call)) {
    case Kind::kOpen:
    case Kind::kOpenAt:
    case Kind::kRead:
    case Kind::kWrite:
    case Kind::kCopy:
    case Kind::kSync:
    case Kind::kName:
    case Kind::kRemove:
    case Kind::kAttribute:
    case Kind::kExamine:
    case Kind::kList:
    case Kind::kControl:
    case Kind::kClose:
      return true;
    default:
      return false;
  }
}

bool bSleep(long call) {
  return kindOf(call) == Kind::kSleep;
}

bool bClose(long call) {
  return kindOf(call) == Kind::kClose;
}

bool bBreak(long call) {
  return kindOf(call) == Kind::kBreak;
}

std::vector<long> callsThatCanFail() {
  std::vector<long> numbers;
  for (const Row& row : kRows) {
    if (row.kind != Kind::kNever) numbers.push_back(row.number);
  }
  return numbers;
}

std::vector<long> callsThatSleep() {
  std::vector<long> numbers;
  for (const Row& row : kRows) {
    if (row.kind == Kind::kSleep) numbers.push_back(row.number);
  }
  return numbers;
}

}  // namespace kelt::tests
