#include "support/injector/deadline.h"

#include <csignal>
#include <fstream>
#include <string>
#include <sys/time.h>
#include <unistd.h>

namespace kelt::tests {
namespace {

volatile std::sig_atomic_t expired = 0;

void expire(int /*signal*/) {
  expired = 1;
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

std::vector<pid_t> children() {
  const std::string self = std::to_string(::getpid());
  std::ifstream list("/proc/" + self + "/task/" + self + "/children");
  std::vector<pid_t> found;
  for (pid_t child = 0; list >> child;)
    found.push_back(child);
  return found;
}

void killChildren() {
  for (const pid_t child : children())
    ::kill(child, SIGKILL);
}

}  // namespace kelt::tests
