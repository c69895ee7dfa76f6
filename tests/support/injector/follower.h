#pragma once
// One run under ptrace: who its processes are, and what becomes of each system call of theirs.

#include <map>
#include <optional>
#include <string>
#include <sys/types.h>
#include <sys/user.h>

#include "support/injector/deadline.h"
#include "support/injector/injector.h"

namespace kelt::tests {

/// Follows a child that has asked for it (PTRACE_TRACEME) and stopped itself, to the end of all that it starts.
class Follower {
 public:
  Follower(pid_t child, const Program& program, const Plan& plan, const Watcher& watcher);

  /// Everything of an Outcome but the two outputs.
  [[nodiscard]] Outcome follow(const Deadline& deadline);

 private:
  struct Process {
    std::string name;                   ///< as in Spot; empty until the fork that made it is reported
    std::map<long, std::size_t> calls;  ///< counted so far
    unsigned forks = 0;
    bool bCounted = false;                       ///< from the entry point on, until it becomes another program
    bool bAttached = false;                      ///< has made its first stop
    bool bWaits = false;                         ///< stands there until it is named
    bool bRepeats = false;                       ///< its next stop is that of a call that was counted already
    std::optional<int> result;                   ///< what its call under way will give instead
    std::optional<unsigned long long> argument;  ///< the first one, which its call under way was given another for
    std::string visible;                         ///< what its call under way makes visible
  };

  void ended(pid_t pid, int status);
  void stopped(pid_t pid, int status);
  void attached(pid_t pid, Process& process);
  void forked(pid_t pid, Process& process);
  void executed(pid_t pid, Process& process);
  bool atEntry(pid_t pid, Process& process);
  bool stepToMain(pid_t pid, user_regs_struct& registers);
  void setBreakpoint(pid_t pid, unsigned long address);
  void removeBreakpoint(pid_t pid, user_regs_struct& registers);
  bool bCountedNow(const SystemCall& call, Process& process);
  void called(pid_t pid, Process& process);
  void returned(pid_t pid, Process& process);
  void letThrough(pid_t pid, const Process& process);
  void tellWatcher(Process& process);

  void strike(const Fault& fault, const SystemCall& call, Process& process, user_regs_struct& registers);
  bool inject(const SystemCall& call, Process& process, user_regs_struct& registers);
  void refuse(int error, const SystemCall& call, Process& process, user_regs_struct& registers);
  void terminateBefore(pid_t pid, Process& process, user_regs_struct& registers);
  void hit(const SystemCall& call, const Process& process, const std::string& how);
  void kill(pid_t pid);

  const std::string& m_begin;  // of the program
  const Plan& m_plan;
  const Watcher& m_watcher;
  pid_t m_child;
  std::map<pid_t, Process> m_processes;
  unsigned long m_entry = 0;         ///< the program's entry point
  unsigned long m_breakpoint = 0;    ///< where one is set
  long m_word = 0;                   ///< what stood there before
  std::optional<CallError> m_lasts;  ///< fails every call that can give it
  bool m_bEnded = false;             ///< the program itself
  Outcome m_outcome;
};

}  // namespace kelt::tests
