#include "support/injector/follower.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <elf.h>
#include <fcntl.h>
#include <fstream>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace kelt::tests {
namespace {

constexpr int kOptions = PTRACE_O_TRACESECCOMP | PTRACE_O_TRACEEXEC | PTRACE_O_TRACEFORK | PTRACE_O_TRACEVFORK |
                         PTRACE_O_TRACECLONE | PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL;

constexpr unsigned long kBreakpoint = 0xCC;
constexpr unsigned long kLowByte = 0xFF;
constexpr unsigned kCallLength = 2;    // of the instruction "syscall"
constexpr unsigned kEntryLength = 64;  // more than what stands at an entry point takes

// What the requests take as addresses are numbers most of the time.
void* word(unsigned long value) {
  return reinterpret_cast<void*>(value);  // NOLINT(performance-no-int-to-ptr)
}

/// Makes a request. Returns whether it was granted; it is not for a process that is being killed meanwhile.
bool request(int what, pid_t pid, void* data) {
  return ::ptrace(static_cast<__ptrace_request>(what), pid, nullptr, data) == 0;
}

void goOn(pid_t pid, int signal = 0) {
  (void)request(PTRACE_CONT, pid, word(static_cast<unsigned long>(signal)));
}

unsigned long entryPoint(pid_t pid) {
  const std::string path = "/proc/" + std::to_string(pid) + "/auxv";
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  std::array<Elf64_auxv_t, 64> entries{};
  const ssize_t got = ::read(fd, entries.data(), sizeof entries);
  ::close(fd);
  for (const Elf64_auxv_t& entry : entries) {
    if (entry.a_type == AT_ENTRY && got > 0) return entry.a_un.a_val;
  }
  std::fprintf(stderr, "injector: no entry point in %s\n", path.c_str());
  std::exit(99);
}

/// The words of the program that the process runs, a blank after each.
std::string wordsOf(pid_t pid) {
  std::ifstream file("/proc/" + std::to_string(pid) + "/cmdline");
  std::string words;
  for (std::string word; std::getline(file, word, '\0');)
    words += word + " ";
  return words;
}

SystemCall callIn(pid_t pid, const user_regs_struct& registers) {
  return {pid,
          static_cast<long>(registers.orig_rax),
          {registers.rdi, registers.rsi, registers.rdx, registers.r10, registers.r8, registers.r9}};
}

/// The call, with the path that it makes visible, and what becomes of it.
std::string described(const SystemCall& call, const std::string& how) {
  const std::string path = madeVisible(call);
  return nameOf(call.number) + (path.empty() ? "" : "(" + path + ")") + " " + how;
}

/// How long the injector lets a sleep of the tool last.
constexpr useconds_t kNap = 1000;

}  // namespace

Follower::Follower(pid_t child, const Program& program, const Plan& plan, const Watcher& watcher)
    : m_begin(program.begin), m_plan(plan), m_watcher(watcher), m_child(child) {
  m_processes[child].name = "0";
  m_processes[child].bAttached = true;
  int status = 0;
  while (::waitpid(child, &status, __WALL) < 0 && errno == EINTR) {
  }
  if (!WIFSTOPPED(status) || !request(PTRACE_SETOPTIONS, child, word(kOptions))) {
    std::fprintf(stderr, "injector: the system does not let processes be followed\n");
    std::exit(99);
  }
  goOn(child);
}

Outcome Follower::follow(const Deadline& deadline) {
  for (;;) {
    int status = 0;
    const pid_t pid = ::waitpid(-1, &status, __WALL);
    if (pid < 0 && errno == ECHILD) break;
    if (pid < 0) {
      if (!deadline.bOver() || bDescendantsStarve(kProcessorSeconds)) continue;
      (m_bEnded ? m_outcome.bLeft : m_outcome.bHung) = true;
      for (const auto& [process, ignored] : m_processes)
        ::kill(process, SIGKILL);
      killDescendants();
    } else if (WIFSTOPPED(status)) {
      stopped(pid, status);
    } else {
      ended(pid, status);
    }
  }
  return std::move(m_outcome);
}

void Follower::ended(pid_t pid, int status) {
  if (pid == m_child) {
    m_bEnded = true;
    m_outcome.status = status;
  } else if (WIFSIGNALED(status) && WTERMSIG(status) != SIGKILL && WTERMSIG(status) != SIGTERM &&
             m_processes.count(pid) != 0 && m_processes[pid].bCounted) {
    m_outcome.crashes.push_back(WTERMSIG(status));
  }
  m_processes.erase(pid);
}

void Follower::stopped(pid_t pid, int status) {
  Process& process = m_processes[pid];
  const int signal = WSTOPSIG(status);
  switch (status >> 16) {
    case PTRACE_EVENT_SECCOMP:
      return called(pid, process);
    case PTRACE_EVENT_FORK:
    case PTRACE_EVENT_VFORK:
    case PTRACE_EVENT_CLONE:
      return forked(pid, process);
    case PTRACE_EVENT_EXEC:
      return executed(pid, process);
    default:
      break;
  }
  if (signal == (SIGTRAP | 0x80)) return returned(pid, process);
  if (signal == SIGSTOP && !process.bAttached) return attached(pid, process);
  if (signal == SIGTRAP && atEntry(pid, process)) return;
  goOn(pid, signal);
}

// The first stop of a forked process and the word of the fork itself come in either order.
void Follower::attached(pid_t pid, Process& process) {
  process.bAttached = true;
  process.bWaits = process.name.empty();
  if (!process.bWaits) goOn(pid);
}

void Follower::forked(pid_t pid, Process& process) {
  unsigned long child = 0;
  if (request(PTRACE_GETEVENTMSG, pid, &child)) {
    Process& made = m_processes[static_cast<pid_t>(child)];
    made.name = process.name + "." + std::to_string(++process.forks);
    made.bCounted = process.bCounted;
    if (std::exchange(made.bWaits, false)) goOn(static_cast<pid_t>(child));
  }
  goOn(pid);
}

void Follower::setBreakpoint(pid_t pid, unsigned long address) {
  m_breakpoint = address;
  m_word = ::ptrace(PTRACE_PEEKTEXT, pid, word(address), nullptr);
  const unsigned long patched = (static_cast<unsigned long>(m_word) & ~kLowByte) | kBreakpoint;
  ::ptrace(PTRACE_POKETEXT, pid, word(address), word(patched));
}

/// The process stands right after it, and then before what stood there.
void Follower::removeBreakpoint(pid_t pid, user_regs_struct& registers) {
  ::ptrace(PTRACE_POKETEXT, pid, word(m_breakpoint), word(static_cast<unsigned long>(m_word)));
  registers.rip = m_breakpoint;
  (void)request(PTRACE_SETREGS, pid, &registers);
}

void Follower::executed(pid_t pid, Process& process) {
  if (pid == m_child && m_entry == 0) {
    m_entry = entryPoint(pid);
    if (m_begin.empty()) setBreakpoint(pid, m_entry);
  } else {
    process.bCounted = false;  // a command, and no business of ours
    m_outcome.commands[process.name] = wordsOf(pid);
  }
  goOn(pid);
}

/// From the entry point up to the call that hands main over to the C library, as its first argument.
bool Follower::stepToMain(pid_t pid, user_regs_struct& registers) {
  for (unsigned steps = 0; steps < kEntryLength; ++steps) {
    int status = 0;
    if (!request(PTRACE_SINGLESTEP, pid, nullptr) || ::waitpid(pid, &status, __WALL) != pid || !WIFSTOPPED(status))
      return false;
    if (!request(PTRACE_GETREGS, pid, &registers)) return false;
    if (registers.rip - m_entry >= kEntryLength) return true;
  }
  return false;
}

/// True when the stop was at a breakpoint of ours.
bool Follower::atEntry(pid_t pid, Process& process) {
  user_regs_struct registers{};
  if (pid != m_child || process.bCounted || !request(PTRACE_GETREGS, pid, &registers)) return false;
  if (registers.rip != m_breakpoint + 1) return false;
  removeBreakpoint(pid, registers);
  if (m_breakpoint != m_entry) {
    process.bCounted = true;  // main
  } else if (stepToMain(pid, registers)) {
    setBreakpoint(pid, registers.rdi);
  } else {
    std::fprintf(stderr, "injector: the way to main is not as expected\n");
    std::exit(99);
  }
  goOn(pid);
  return true;
}

void Follower::tellWatcher(Process& process) {
  if (process.visible.empty()) return;
  m_watcher(process.visible);
  process.visible.clear();
}

/// Whether the call is one of those that count; what an emulator does for itself is not.
bool Follower::bCountedNow(const SystemCall& call, Process& process) {
  if (m_begin.empty()) return process.bCounted;
  if (process.name == "0" && !process.bCounted) process.bCounted = madeVisible(call).starts_with(m_begin);
  return process.bCounted && bOfFiles(call.number);
}

void Follower::called(pid_t pid, Process& process) {
  user_regs_struct registers{};
  const bool bWaited = process.name == "0" && !m_begin.empty();
  if (!(process.bCounted || bWaited) || !request(PTRACE_GETREGS, pid, &registers)) return goOn(pid);
  const SystemCall call = callIn(pid, registers);
  if (!bCountedNow(call, process)) return goOn(pid);
  if (m_watcher) process.visible = madeVisible(call);
  if (std::exchange(process.bRepeats, false)) return letThrough(pid, process);
  const std::size_t which = ++process.calls[call.number];
  if (m_outcome.bHit) ++m_outcome.callsAfter;
  if (m_plan.bRecord) m_outcome.calls.push_back({{process.name, call.number, which}, errorsOf(call)});
  if (inject(call, process, registers)) return;
  if (bSleep(call.number)) {
    ::usleep(kNap);
    registers.orig_rax = static_cast<unsigned long long>(-1);
    registers.rax = 0;
    (void)request(PTRACE_SETREGS, pid, &registers);
  }
  letThrough(pid, process);
}

/// Lets the call be made, up to its end where that has to be looked at.
void Follower::letThrough(pid_t pid, const Process& process) {
  process.visible.empty() ? goOn(pid) : (void)request(PTRACE_SYSCALL, pid, nullptr);
}

/// True when the process was dealt with, and goes on or has ended.
bool Follower::inject(const SystemCall& call, Process& process, user_regs_struct& registers) {
  if (m_plan.killAfter != 0 && m_outcome.callsAfter == m_plan.killAfter && !m_outcome.bKilledAfter) {
    m_outcome.bKilledAfter = true;
    m_outcome.killedProcess = process.name;
    m_outcome.killedWhere = described(call, "SIGKILL");
    kill(call.process);
    return true;
  }
  for (const Fault& fault : m_plan.faults) {
    if (!(fault.at == Spot{process.name, call.number, process.calls[call.number]})) continue;
    strike(fault, call, process, registers);
    return true;
  }
  if (!m_lasts) return false;
  const std::vector<CallError> errors = errorsOf(call);
  if (std::find(errors.begin(), errors.end(), *m_lasts) == errors.end()) return false;
  refuse(m_lasts->number, call, process, registers);
  return true;
}

void Follower::strike(const Fault& fault, const SystemCall& call, Process& process, user_regs_struct& registers) {
  switch (fault.action) {
    case Action::kFail:
    case Action::kFailFromHere: {
      // Where a run differs from the recorded one, the call may be another.
      const std::vector<CallError> errors = errorsOf(call);
      const auto error =
          std::find_if(errors.begin(), errors.end(), [&](const CallError& one) { return one.number == fault.error; });
      if (error == errors.end()) return letThrough(call.process, process);
      if (fault.action == Action::kFailFromHere) m_lasts = *error;
      hit(call, process, errorName(error->number));
      return refuse(error->number, call, process, registers);
    }
    case Action::kKill:
      hit(call, process, "SIGKILL");
      return kill(call.process);
    case Action::kTerminate:
      hit(call, process, "SIGTERM");
      return terminateBefore(call.process, process, registers);
  }
}

void Follower::hit(const SystemCall& call, const Process& process, const std::string& how) {
  m_outcome.bHit = true;
  m_outcome.process = process.name;
  m_outcome.where = described(call, how);
}

void Follower::refuse(int error, const SystemCall& call, Process& process, user_regs_struct& registers) {
  m_outcome.refused.insert(nameOf(call.number));
  process.visible.clear();
  if (bClose(call.number)) {  // the descriptor is gone all the same
    process.result = -error;
    (void)request(PTRACE_SYSCALL, call.process, nullptr);
    return;
  }
  if (bBreak(call.number)) {  // which reports by the break that it leaves: ask for that
    process.argument = registers.rdi;
    registers.rdi = 0;
    (void)request(PTRACE_SETREGS, call.process, &registers);
    (void)request(PTRACE_SYSCALL, call.process, nullptr);
    return;
  }
  registers.orig_rax = static_cast<unsigned long long>(-1);
  registers.rax = static_cast<unsigned long long>(-error);
  (void)request(PTRACE_SETREGS, call.process, &registers);
  goOn(call.process);
}

/// Looks at what a call has come to. Replaces the result of one that was executed, and puts back an argument: a program
/// takes its registers for unchanged.
void Follower::returned(pid_t pid, Process& process) {
  tellWatcher(process);
  user_regs_struct registers{};
  if ((process.result || process.argument) && request(PTRACE_GETREGS, pid, &registers)) {
    if (process.result) registers.rax = static_cast<unsigned long long>(*std::exchange(process.result, std::nullopt));
    if (process.argument) registers.rdi = *std::exchange(process.argument, std::nullopt);
    (void)request(PTRACE_SETREGS, pid, &registers);
  }
  goOn(pid);
}

/// The call is put off: the signal meets the process just before it, and then the call is made, if it still is.
void Follower::terminateBefore(pid_t pid, Process& process, user_regs_struct& registers) {
  registers.rip -= kCallLength;
  registers.rax = registers.orig_rax;
  registers.orig_rax = static_cast<unsigned long long>(-1);
  (void)request(PTRACE_SETREGS, pid, &registers);
  process.bRepeats = true;
  process.visible.clear();
  ::kill(pid, SIGTERM);
  goOn(pid);
}

// It is stopped before the call, which it does not get to any more.
void Follower::kill(pid_t pid) {
  ::kill(pid, SIGKILL);
}

}  // namespace kelt::tests
