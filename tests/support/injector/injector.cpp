#include "support/injector/injector.h"

#include <array>
#include <cerrno>
#include <csignal>
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

/// Every system call of this process and of all that come from it stops for its follower from now on.
bool stopAtEachCall() {
  std::array<sock_filter, 1> filter{{{BPF_RET | BPF_K, 0, 0, SECCOMP_RET_TRACE}}};
  const sock_fprog program{filter.size(), filter.data()};
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

pid_t Injector::start(const Program& program, bool bFollowed) {
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
  if (bFollowed) {
    if (::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) ::_exit(126);
    ::raise(SIGSTOP);
    if (!stopAtEachCall()) ::_exit(126);
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
  const pid_t child = start(program, true);
  Follower follower(child, program, plan, watcher);
  Outcome outcome = follower.follow(deadline);
  collect(outcome);
  return outcome;
}

Outcome Injector::runFree(const Program& program) {
  const Deadline deadline(m_seconds);
  Outcome outcome;
  const pid_t child = start(program, false);
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
