#include "modes/take_back.h"

#include <array>
#include <string_view>
#include <sys/stat.h>

#include "base/file_place.h"
#include "base/retry.h"
#include "helper/agent_log.h"
#include "helper/agent_paths.h"
#include "helper/files.h"

namespace kelt::modes {
namespace {

namespace paths = helper::paths;

/// What a mark may name.
constexpr std::array kNames = {paths::kRequestKey, paths::kRequestKey2048, paths::kFipsMarker, paths::kServerKey,
                               paths::kServerKey2048};

std::string installed(const std::string& name) {
  return std::string(paths::kInstallDir) + name;
}

/// The line of a plan for what stands there now: its inode, which is given to another file once this one is gone, and
/// the time of its last change, which another one has only if it came within the grain of the kernel's clock. Empty
/// where nothing is there.
std::string lineFor(const std::string& name) {
  struct stat info {};
  const std::string path = installed(name);
  if (!base::askTwice([&] { return ::lstat(path.c_str(), &info) == 0; })) return {};
  return "copy=" + name.substr(1) + " " + std::to_string(info.st_ino) + " " + std::to_string(info.st_ctim.tv_sec) +
         "." + std::to_string(info.st_ctim.tv_nsec) + "\n";
}

/// Whether the plan, lines that each end in a line feed, has this one.
bool bHasLine(std::string_view plan, std::string_view line) {
  if (line.empty()) return false;
  while (!plan.empty() && !plan.starts_with(line)) {
    const std::size_t end = plan.find('\n');
    plan.remove_prefix(end == std::string_view::npos ? plan.size() : end + 1);
  }
  return !plan.empty();
}

void deleteCopy(const std::string& path) {
  if (helper::deleteFile(path)) {
    helper::logEvent("Deleted after a failed switch: " + path);
  } else {
    helper::logProblem("Left of an interrupted switch, not deleted: " + path);
  }
}

}  // namespace

std::string planOfTakingBack(const std::vector<std::string>& names) {
  std::string plan;
  for (const std::string& name : names)
    plan += lineFor(name);
  return plan;
}

void finishTakingBack(helper::WorkMark& mark) {
  helper::logEvent("Taking back what is left of a failed switch to managed mode.");
  const std::string plan = mark.found()->plan;
  for (const char* name : kNames) {
    if (bHasLine(plan, lineFor(name))) deleteCopy(installed(name));
  }
  static_cast<void>(base::syncDirectory(paths::kInstallDir));
  mark.end();
}

}  // namespace kelt::modes
