#include "base/running_process.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include "base/retry.h"
#include "base/unique_fd.h"

namespace kelt::base {
namespace {

constexpr int kHundredth = 10'000'000;  // nanoseconds

struct Status {
  char state = 'X';
  unsigned long long startedAt = 0;  // in clock ticks since the system came up
};

/// What /proc says of the process; a dead one where it says nothing.
Status statusOf(pid_t number) noexcept {
  std::array<char, 64> path{};
  static_cast<void>(std::snprintf(path.data(), path.size(), "/proc/%d/stat", static_cast<int>(number)));
  const UniqueFd file(::open(path.data(), O_RDONLY | O_CLOEXEC));
  if (!file) return {};
  std::array<char, 1024> line{};
  if (retryInterrupted([&] { return ::read(file.get(), line.data(), line.size() - 1); }) <= 0) return {};
  // The program's name, in parentheses, may hold anything.
  const char* const name = std::strrchr(line.data(), ')');
  if (name == nullptr) return {};
  Status status;
  constexpr const char* kFields = ") %c %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %llu";
  return std::sscanf(name, kFields, &status.state, &status.startedAt) == 2 ? status : Status{};
}

}  // namespace

SeenProcess thisProcess() noexcept {
  timespec now{};
  // The clock by which /proc tells when a process was started: it goes on while the device sleeps.
  ::clock_gettime(CLOCK_BOOTTIME, &now);
  return {::getpid(), std::int64_t{now.tv_sec} * 100 + now.tv_nsec / kHundredth};
}

bool bRuns(const SeenProcess& process) noexcept {
  const Status status = statusOf(process.number);
  // A zombie has ended, and only nobody asked for its status yet.
  if (status.state == 'Z' || status.state == 'X') return false;
  const auto startedAt = static_cast<std::int64_t>(status.startedAt) * 100 / ::sysconf(_SC_CLK_TCK);
  // One that started later is another process, which got the number anew.
  return startedAt <= process.seenAt;
}

}  // namespace kelt::base
