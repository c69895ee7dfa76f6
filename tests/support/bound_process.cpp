#include "support/bound_process.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <iterator>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "base/unique_fd.h"

namespace kelt::tests {

pid_t forkBound() {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) return -1;
  base::UniqueFd reader(ends[0]);
  base::UniqueFd writer(ends[1]);
  const pid_t child = ::fork();
  if (child < 0) return -1;
  if (child == 0) {
    reader.reset();
    // A parent that ended before the first of these calls ends the child by the second.
    if (::prctl(PR_SET_PDEATHSIG, SIGKILL) != 0 || ::write(writer.get(), "x", 1) != 1) ::_exit(99);
    return 0;
  }
  writer.reset();
  char byte = 0;
  while (::read(reader.get(), &byte, 1) < 0 && errno == EINTR) {
  }
  return child;
}

int threadCount() {
#ifdef __powerpc__
  return 1;
#else
  const std::filesystem::directory_iterator tasks("/proc/self/task");
  return static_cast<int>(std::distance(begin(tasks), end(tasks)));
#endif
}

int waitStatusOf(pid_t child) {
  int status = -1;
  while (::waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) return -1;
  }
  return status;
}

}  // namespace kelt::tests
