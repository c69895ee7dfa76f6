// The lock between runs.

#include <array>
#include <climits>
#include <dirent.h>
#include <optional>
#include <string_view>
#include <sys/statvfs.h>
#include <unistd.h>

#include "check/device.h"
#include "check/look.h"

#include "base/file_place.h"
#include "base/file_read.h"
#include "base/listing.h"
#include "helper/agent_paths.h"
#include "platform/interprocess_write_lock.h"

namespace kelt::check {
namespace {

namespace paths = helper::paths;

/// More than the system tells of a descriptor or a program's name.
constexpr std::size_t kMostTold = 4096;

/// The names in a directory one by one, but for "." and "..".
std::optional<std::string> nextName(DIR* directory) {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): the stream is the caller's own
  while (const dirent* entry = ::readdir(directory)) {
    if (entry->d_name[0] != '.') return &entry->d_name[0];
  }
  return std::nullopt;
}

/// Whether the descriptor `number` of a process is the lock's file, and the lock is held by it: who waits for the lock
/// has the file open as well.
bool bHolds(const std::string& process, const std::string& number, const std::string& path) {
  std::array<char, PATH_MAX> target{};
  const ssize_t length = ::readlink((process + "/fd/" + number).c_str(), target.data(), target.size());
  // Of a file that was removed the system tells another name, " (deleted)" after it: no new run waits for that one.
  if (length <= 0 || path != std::string_view(target.data(), static_cast<std::size_t>(length))) return false;
  const auto told = base::readText(process + "/fdinfo/" + number, kMostTold);
  return told && told.value().find("\nlock:") != std::string::npos;
}

/// `process` is its directory in /proc.
bool bHolder(const std::string& process, const std::string& path) {
  const base::Listing descriptors(::opendir((process + "/fd").c_str()));
  while (const auto number = descriptors ? nextName(descriptors.get()) : std::nullopt) {
    if (bHolds(process, *number, path)) return true;
  }
  return false;
}

/// The process that holds the lock, for people; empty where the system does not tell.
std::string holderOf(const std::string& path) {
  const base::Listing processes(::opendir("/proc"));
  while (const auto name = processes ? nextName(processes.get()) : std::nullopt) {
    const std::string process = "/proc/" + *name;
    if (name->find_first_not_of("0123456789") != std::string::npos || !bHolder(process, path)) continue;
    const auto command = base::readText(process + "/comm", kMostTold);
    return "process " + *name + (command ? " (" + command.value().substr(0, command.value().find('\n')) + ")" : "");
  }
  return {};
}

/// Whether a run could make the directory of the lock.
void checkRoomForLock(const std::string& above, Findings& findings) {
  const auto system = fileSystemOf(above);
  if (!system) return findings.failure(State::kProblem, "trace.lock", system.error(), "Make the directory.");
  if ((system.value().f_flag & ST_RDONLY) != 0)
    return findings.problem("trace.lock", above + " is read-only, so that no run can take the lock",
                            "Mount it for writing.");
  findings.ok("trace.lock", "No run holds the lock");
}

}  // namespace

void checkLock(Device& device, Findings& findings) {
  findings.begin("trace.lock", {});
  // What a run owes the agent is marked in the directory of the lock.
  const std::string directory = base::directoryOf(paths::kStartOwed);
  const std::string path = directory + "/" + paths::kInstanceLock;
  const auto held = InterProcessWriteLock::held(paths::kInstanceLock, kAgentUser);
  if (!held)
    return findings.failure(State::kProblem, "trace.lock", held.error(),
                            "Remove it, after a look at who put it there; every run makes it anew.");
  device.bRunUnderWay = held.value();
  if (held.value()) {
    const std::string holder = holderOf(path);
    return findings.warning("trace.lock",
                            "A run is under way: the lock is held" + (holder.empty() ? "" : " by " + holder),
                            "Wait for its end, and look again; a run waits 300 seconds at most.");
  }
  checkRoomForLock(lookAt(directory) ? directory : base::directoryOf(directory), findings);
}

}  // namespace kelt::check
