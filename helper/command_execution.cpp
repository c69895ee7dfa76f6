// Running the commands that the agent's configuration names.

#include <cerrno>
#include <cstdlib>
#include <new>
#include <string_view>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>
#include <utility>

#include "base/environment.h"
#include "base/signals.h"
#include "helper/unix_command_line_helper.h"
#include "platform/logger.h"

namespace kelt::helper {
namespace {

/// White space as the C locale has it, whatever locale is set and whether `char` is signed or not.
bool bBlank(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

/// Becomes the program that `arguments` (null-terminated) names, or ends.
[[noreturn]] void runInChild(char* const* arguments, void (*last)()) {
  base::resetSignalsForChild();
  base::giveEnvironmentBack();
  // The tool's own library path is no business of the agent's programs.
  ::unsetenv("LD_LIBRARY_PATH");  // NOLINT(concurrency-mt-unsafe): there is one thread
  if (last != nullptr) last();
  if (*arguments != nullptr) ::execvp(*arguments, arguments);
  ::_exit(1);
}

/// How often a process is asked for that must come to be, and the pause between, a tenth of a second.
constexpr int kPatience = 100;
constexpr timespec kPause{0, 100'000'000};

/// Forks, again and again where the system has no process for now. Returns what fork returned last.
pid_t forkPatiently() {
  pid_t child = ::fork();
  if (child < 0) logError(L"keltcfg", L"The system has no process for a command that starts the agent; trying again.");
  for (int tries = 1; child < 0 && tries < kPatience; ++tries) {
    ::nanosleep(&kPause, nullptr);
    child = ::fork();
  }
  return child;
}

/// Waits until a child ends; there is never another one than the one just started. Returns at once when there is none.
void waitForChild() {
  int status = 0;
  while (::wait(&status) < 0 && errno == EINTR) {
  }
}

}  // namespace

// NOLINTNEXTLINE(performance-unnecessary-value-param): the signature is given
void unixCommandLineHelper::splitStringToParameters(std::wstring commandLine,
                                                    std::vector<std::string>& parameters) const {
  const ACharString narrow(commandLine.c_str());
  std::string word;
  bool bQuoted = false;
  for (const char c : std::string_view(static_cast<const char*>(narrow))) {
    if (c == '"') bQuoted = !bQuoted;
    if (bQuoted || !bBlank(c)) {
      word += c;
    } else if (!word.empty()) {
      parameters.push_back(std::exchange(word, {}));
    }
  }
  if (!word.empty()) parameters.push_back(std::move(word));
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the signature is given
bool unixCommandLineHelper::ExecCmd(AString commandLine) const {
  return run(commandLine.str(), nullptr, false);
}

bool unixCommandLineHelper::run(const std::wstring& commandLine, void (*last)(), bool bPatient) const {
  // All memory is taken before the fork: where there is none, no second copy of the tool runs on.
  std::vector<std::string> words;
  std::vector<char*> arguments;
  try {
    splitStringToParameters(commandLine, words);
    for (std::string& word : words)
      arguments.push_back(word.data());
    arguments.push_back(nullptr);
  } catch (const std::bad_alloc&) {
    return false;
  }

  if ((bPatient ? forkPatiently() : ::fork()) == 0) runInChild(arguments.data(), last);
  waitForChild();
  return true;
}

}  // namespace kelt::helper
