#include "support/injector/deadline.h"

#include <algorithm>
#include <csignal>
#include <fstream>
#include <sstream>
#include <string>
#include <sys/time.h>
#include <unistd.h>

namespace kelt::tests {
namespace {

volatile std::sig_atomic_t expired = 0;

void expire(int /*signal*/) {
  expired = 1;
}

/// By the fields of /proc/N/stat that follow the name in parentheses: the state first, the clock ticks in user and
/// kernel mode as the 12th and 13th.
bool bStarves(pid_t process, int seconds) {
  std::ifstream file("/proc/" + std::to_string(process) + "/stat");
  std::string text;
  std::getline(file, text);
  const std::size_t name = text.rfind(')');
  if (name == std::string::npos) return false;
  std::istringstream fields(text.substr(name + 1));
  std::string state;
  std::string skipped;
  fields >> state;
  for (int n = 0; n < 10; ++n)
    fields >> skipped;
  long user = 0;
  long kernel = 0;
  fields >> user >> kernel;
  // Stopped for its follower, it waits for this process to get on.
  const bool bCouldGoOn = state == "R" || state == "t" || state == "T";
  return bCouldGoOn && (user + kernel) / ::sysconf(_SC_CLK_TCK) < seconds;
}

void arm(int seconds) {
  const itimerval timer{{seconds > 0 ? 1 : 0, 0}, {seconds, 0}};
  ::setitimer(ITIMER_REAL, &timer, nullptr);
}

}  // namespace

Deadline::Deadline(int seconds) {
  struct sigaction action {};
  action.sa_handler = expire;  // without SA_RESTART
  ::sigaction(SIGALRM, &action, nullptr);
  expired = 0;
  arm(seconds);
}

Deadline::~Deadline() {
  arm(0);
}

// NOLINTNEXTLINE(readability-convert-member-functions-to-static): of the one that lives
bool Deadline::bOver() const {
  return expired != 0;
}

std::vector<pid_t> descendants() {
  std::vector<pid_t> found = {::getpid()};
  for (std::size_t n = 0; n < found.size(); ++n) {
    const std::string process = std::to_string(found[n]);
    std::ifstream list("/proc/" + process + "/task/" + process + "/children");
    for (pid_t child = 0; list >> child;)
      found.push_back(child);
  }
  found.erase(found.begin());
  return found;
}

void killDescendants() {
  for (const pid_t process : descendants())
    ::kill(process, SIGKILL);
}

bool bDescendantsStarve(int seconds) {
  const std::vector<pid_t> processes = descendants();
  return std::any_of(processes.begin(), processes.end(), [&](pid_t process) { return bStarves(process, seconds); });
}

}  // namespace kelt::tests
