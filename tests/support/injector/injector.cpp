#include "support/injector/injector.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/mman.h>
#include <sys/personality.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/injector/deadline.h"
#include "support/injector/follower.h"

namespace kelt::tests {
namespace {

[[noreturn]] void giveUp(const char* what) {
  std::fprintf(stderr, "injector: %s: %s\n", what, std::strerror(errno));
  std::exit(99);
}

int memoryFile(const char* name) {
  const int fd = ::memfd_create(name, MFD_CLOEXEC);
  if (fd < 0) giveUp("memfd_create");
  ::fcntl(fd, F_SETFL, O_APPEND);
  return fd;
}

std::string contentOf(int fd) {
  std::string text(static_cast<std::size_t>(::lseek(fd, 0, SEEK_END)), '\0');
  const ssize_t got = ::pread(fd, text.data(), text.size(), 0);
  text.resize(got < 0 ? 0 : static_cast<std::size_t>(got));
  return text;
}

std::vector<char*> pointersTo(const std::vector<std::string>& texts, const char* first) {
  std::vector<char*> pointers;
  if (first != nullptr) pointers.push_back(const_cast<char*>(first));
  for (const std::string& text : texts)
    pointers.push_back(const_cast<char*>(text.c_str()));
  pointers.push_back(nullptr);
  return pointers;
}

constexpr sock_filter kStop{BPF_RET | BPF_K, 0, 0, SECCOMP_RET_TRACE};
constexpr sock_filter kPass{BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ALLOW};

sock_filter load(std::size_t offset) {
  return {BPF_LD | BPF_W | BPF_ABS, 0, 0, static_cast<std::uint32_t>(offset)};
}

/// Of the next two steps, takes the first where the value is this one, and otherwise skips `skipped`.
sock_filter ifEqual(long value, std::uint8_t skipped) {
  return {BPF_JMP | BPF_JEQ | BPF_K, 0, skipped, static_cast<std::uint32_t>(value)};
}

void stopAt(std::vector<sock_filter>& filter, long number) {
  filter.insert(filter.end(), {ifEqual(number, 1), kStop});
}

void stopAtCreation(std::vector<sock_filter>& filter, long number, int flags) {
  const std::size_t argument = offsetof(seccomp_data, args) + static_cast<std::size_t>(flags) * sizeof(std::uint64_t);
  const sock_filter ifCreates{BPF_JMP | BPF_JSET | BPF_K, 0, 1, O_CREAT};
  filter.insert(filter.end(), {ifEqual(number, 4), load(argument), ifCreates, kStop, kPass});
}

/// Whether every call matters: where they are recorded or counted, and where an emulator makes them.
bool bAllMatter(const Program& program, const Plan& plan) {
  return plan.bRecord || plan.bCountAfter || plan.killAfter != 0 || !program.begin.empty();
}

/// A stop takes longer than most calls do, so that the program makes most of them without.
std::vector<sock_filter> filterFor(const Program& program, const Plan& plan, bool bWatched) {
  if (bAllMatter(program, plan)) return {kStop};
  std::vector<sock_filter> filter = {load(offsetof(seccomp_data, nr))};
  bool bLasts = false;
  for (const Fault& fault : plan.faults) {
    stopAt(filter, fault.at.number);
    bLasts = bLasts || fault.action == Action::kFailFromHere;
  }
  for (const long number : bLasts ? callsThatCanFail() : callsThatSleep())
    stopAt(filter, number);
  for (const auto& [number, flags] : bWatched ? callsThatMakeVisible() : std::vector<VisibleCall>()) {
    flags < 0 ? stopAt(filter, number) : stopAtCreation(filter, number, flags);
  }
  filter.push_back(kPass);
  return filter;
}

/// System calls of this process and of all that come from it stop for its follower from now on, as the filter says.
bool stopBy(const std::vector<sock_filter>& filter) {
  const sock_fprog program{static_cast<unsigned short>(filter.size()), const_cast<sock_filter*>(filter.data())};
  ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
  return ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

/// Default actions and nothing blocked, whatever this process was started with.
void resetSignals() {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE, SIGALRM, SIGCHLD})
    ::signal(signal, SIG_DFL);
  sigset_t none;
  ::sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
}

}  // namespace

Injector::Injector(int secondsPerRun)
    : m_output(memoryFile("output")), m_errors(memoryFile("errors")), m_seconds(secondsPerRun) {
  // What a program leaves running becomes ours to wait for.
  if (::prctl(PR_SET_CHILD_SUBREAPER, 1) != 0) giveUp("prctl");
}

Injector::~Injector() {
  ::close(m_output);
  ::close(m_errors);
}

pid_t Injector::start(const Program& program, const std::vector<sock_filter>* filter) {
  for (const int fd : {m_output, m_errors})
    (void)!::ftruncate(fd, 0);
  const std::vector<char*> arguments = pointersTo(program.arguments, program.path.c_str());
  const std::vector<char*> environment = pointersTo(program.environment, nullptr);
  const pid_t child = ::fork();
  if (child < 0) giveUp("fork");
  if (child != 0) return child;

  const int nothing = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  ::dup2(nothing, STDIN_FILENO);
  ::dup2(m_output, STDOUT_FILENO);
  ::dup2(m_errors, STDERR_FILENO);
  const rlimit none{0, 0};
  ::setrlimit(RLIMIT_CORE, &none);
  resetSignals();
  ::personality(ADDR_NO_RANDOMIZE);  // where the heap begins decides how often it grows
  if (filter != nullptr) {
    if (::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) ::_exit(126);
    ::raise(SIGSTOP);
    if (!stopBy(*filter)) ::_exit(126);
  }
  ::execve(program.path.c_str(), arguments.data(), environment.data());
  ::_exit(127);
}

void Injector::collect(Outcome& outcome) {
  outcome.output = contentOf(m_output);
  outcome.errors = contentOf(m_errors);
}

Outcome Injector::run(const Program& program, const Plan& plan, const Watcher& watcher) {
  const Deadline deadline(m_seconds);
  const std::vector<sock_filter> filter = filterFor(program, plan, static_cast<bool>(watcher));
  const pid_t child = start(program, &filter);
  Follower follower(child, program, plan, watcher);
  Outcome outcome = follower.follow(deadline);
  collect(outcome);
  return outcome;
}

Outcome Injector::runFree(const Program& program) {
  const Deadline deadline(m_seconds);
  Outcome outcome;
  const pid_t child = start(program, nullptr);
  bool bEnded = false;
  for (;;) {
    int status = 0;
    const pid_t ended = ::waitpid(-1, &status, 0);
    if (ended < 0 && errno == ECHILD) break;
    if (ended < 0) {
      if (!deadline.bOver() || bDescendantsStarve(kProcessorSeconds)) continue;
      (bEnded ? outcome.bLeft : outcome.bHung) = true;
      killDescendants();
    }
    if (ended != child) continue;
    bEnded = true;
    outcome.status = status;
  }
  collect(outcome);
  return outcome;
}

}  // namespace kelt::tests
