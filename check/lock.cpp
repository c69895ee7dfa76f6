// The lock between runs.

#include <array>
#include <climits>
#include <dirent.h>
#include <memory>
#include <optional>
#include <sys/statvfs.h>
#include <unistd.h>

#include "check/device.h"
#include "check/look.h"

#include "base/file_place.h"
#include "base/file_read.h"
#include "helper/agent_paths.h"
#include "platform/interprocess_write_lock.h"

namespace kelt::check {
namespace {

namespace paths = helper::paths;

struct CloseDirectory {
  void operator()(DIR* stream) const { ::closedir(stream); }
};
using Directory = std::unique_ptr<DIR, CloseDirectory>;

/// The names in a directory one by one, but for "." and "..".
std::optional<std::string> nextName(DIR* directory) {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): the stream is the caller's own
  while (const dirent* entry = ::readdir(directory)) {
    if (entry->d_name[0] != '.') return &entry->d_name[0];
  }
  return std::nullopt;
}

bool bHasOpen(const std::string& process, const std::string& path) {
  const std::string descriptors = "/proc/" + process + "/fd";
  const Directory directory(::opendir(descriptors.c_str()));
  while (const auto name = directory ? nextName(directory.get()) : std::nullopt) {
    std::array<char, PATH_MAX> target{};
    const ssize_t length = ::readlink((descriptors + "/" + *name).c_str(), target.data(), target.size());
    if (length > 0 && path == std::string(target.data(), static_cast<std::size_t>(length))) return true;
  }
  return false;
}

/// The process that has the lock's file open, for people; empty where the system does not tell.
std::string holderOf(const std::string& path) {
  const Directory processes(::opendir("/proc"));
  while (const auto name = processes ? nextName(processes.get()) : std::nullopt) {
    if (name->find_first_not_of("0123456789") != std::string::npos || !bHasOpen(*name, path)) continue;
    const auto command = base::readText("/proc/" + *name + "/comm", 256);
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

void checkLock(Findings& findings) {
  findings.begin("trace.lock", {});
  const std::string directory = base::directoryOf(paths::kStartOwed);
  const std::string path = directory + "/" + paths::kInstanceLock;
  const auto held = InterProcessWriteLock::held(paths::kInstanceLock, kAgentUser);
  if (!held)
    return findings.failure(State::kProblem, "trace.lock", held.error(),
                            "Remove it, after a look at who put it there; every run makes it anew.");
  if (held.value()) {
    const std::string holder = holderOf(path);
    return findings.warning("trace.lock",
                            "A run is under way: the lock is held" + (holder.empty() ? "" : " by " + holder),
                            "Wait for its end, and look again; a run waits 300 seconds at most.");
  }
  checkRoomForLock(lookAt(directory) ? directory : base::directoryOf(directory), findings);
}

}  // namespace kelt::check
