#include "helper/prepared_command.h"

#include <cerrno>
#include <cstdlib>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>
#include <utility>

#include "base/environment.h"
#include "base/signals.h"
#include "helper/agent_log.h"

namespace kelt::helper {
namespace {

/// Becomes the program that `arguments` (null-terminated) names, or ends.
[[noreturn]] void runInChild(char* const* arguments, void (*last)()) {
  base::resetSignalsForChild();
  base::giveEnvironmentBack();
  // The tool's own library path is no business of the agent's programs.
  ::unsetenv("LD_LIBRARY_PATH");  // NOLINT(concurrency-mt-unsafe): there is one thread
  if (last != nullptr) last();
  if (*arguments != nullptr) ::execvp(*arguments, arguments);
  // Not exit(3): what is registered for the end of the process is the parent's.
  ::_exit(1);
}

/// How often a process is asked for that must come to be, and the pause between, a tenth of a second.
constexpr int kPatience = 100;
constexpr timespec kPause{0, 100'000'000};

/// Forks, again and again where the system has no process for now. Returns what fork returned last.
pid_t forkPatiently() {
  pid_t child = ::fork();
  if (child < 0) logProblem("The system has no process for a command of the agent; trying again.");
  for (int tries = 1; child < 0 && tries < kPatience; ++tries) {
    // Where it was a limit, other processes end meanwhile; the agent must not stay stopped for the want of one.
    ::nanosleep(&kPause, nullptr);
    child = ::fork();
  }
  if (child < 0) logProblem("The system had no process for a command of the agent: it was not run.");
  return child;
}

/// Waits until a child ends; there is never another one than the one just started. Returns at once when there is none.
void waitForChild() {
  int status = 0;
  while (::wait(&status) < 0 && errno == EINTR) {
  }
}

}  // namespace

PreparedCommand::PreparedCommand(std::vector<std::string> words) : m_words(std::move(words)) {
  m_arguments.reserve(m_words.size() + 1);
  for (std::string& word : m_words)
    m_arguments.push_back(word.data());
  m_arguments.push_back(nullptr);
}

void PreparedCommand::run(void (*last)()) const noexcept {
  if (::fork() == 0) runInChild(m_arguments.data(), last);
  waitForChild();
}

void PreparedCommand::runPatiently(void (*last)()) const noexcept {
  if (forkPatiently() == 0) runInChild(m_arguments.data(), last);
  waitForChild();
}

}  // namespace kelt::helper
