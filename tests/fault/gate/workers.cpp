#include "fault/gate/workers.h"

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <sched.h>
#include <sstream>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "fault/gate/tree.h"

#include "base/unique_fd.h"

namespace kelt::tests::gate {
namespace {

using Next = std::atomic<std::size_t>;

Next* sharedNext() {
  void* const memory = ::mmap(nullptr, sizeof(Next), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  require(memory != MAP_FAILED, "mmap");
  return new (memory) Next(0);
}

void append(int fd, const std::string& text) {
  for (std::size_t done = 0; done < text.size();) {
    const ssize_t wrote = ::write(fd, text.data() + done, text.size() - done);
    require(wrote > 0, "write a report");
    done += static_cast<std::size_t>(wrote);
  }
}

std::string contentOf(int fd) {
  std::string text(static_cast<std::size_t>(::lseek(fd, 0, SEEK_END)), '\0');
  std::size_t done = 0;
  while (done < text.size()) {
    const ssize_t got = ::pread(fd, text.data() + done, text.size() - done, static_cast<off_t>(done));
    require(got > 0, "read a report");
    done += static_cast<std::size_t>(got);
  }
  return text;
}

/// Keeps this process and all that come from it on one of the processors that it may use. Injector and tool take turns:
/// on two processors each turn has to wake up one that sleeps, which takes longer than what is done in it.
void stayOnOneProcessor(unsigned worker) {
  cpu_set_t allowed;
  CPU_ZERO(&allowed);
  if (::sched_getaffinity(0, sizeof allowed, &allowed) != 0) return;
  int left = static_cast<int>(worker) % CPU_COUNT(&allowed);
  for (int processor = 0; processor < CPU_SETSIZE; ++processor) {
    if (!CPU_ISSET(processor, &allowed) || left-- != 0) continue;
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(processor, &one);
    ::sched_setaffinity(0, sizeof one, &one);
    return;
  }
}

[[noreturn]] void doShare(std::size_t points, Next& next, int report, const Work& work) {
  for (std::size_t point = next++; point < points; point = next++)
    append(report, work(point));
  std::fflush(nullptr);
  ::_exit(0);
}

void addLines(std::vector<std::string>& lines, const std::string& text) {
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);)
    lines.push_back(line);
}

}  // namespace

std::vector<std::string> share(std::size_t points, unsigned count, const MakeWork& makeWork) {
  Next* const next = sharedNext();
  std::vector<base::UniqueFd> reports;
  std::vector<pid_t> workers;
  std::fflush(nullptr);
  for (unsigned worker = 0; worker < count; ++worker) {
    reports.emplace_back(::memfd_create("report", MFD_CLOEXEC));
    const pid_t pid = ::fork();
    require(pid >= 0, "fork");
    if (pid == 0) {
      ::prctl(PR_SET_PDEATHSIG, SIGKILL);
      stayOnOneProcessor(worker);
      doShare(points, *next, reports.back().get(), makeWork(worker));
    }
    workers.push_back(pid);
  }
  std::vector<std::string> lines;
  for (unsigned worker = 0; worker < count; ++worker) {
    int status = 0;
    require(::waitpid(workers[worker], &status, 0) == workers[worker] && status == 0, "a worker failed; wait");
    addLines(lines, contentOf(reports[worker].get()));
  }
  ::munmap(next, sizeof *next);
  return lines;
}

}  // namespace kelt::tests::gate
