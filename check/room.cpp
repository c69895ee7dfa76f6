#include "check/room.h"

#include <algorithm>
#include <map>
#include <sys/stat.h>

#include "check/device.h"
#include "check/look.h"

#include "base/file_place.h"
#include "helper/agent_paths.h"

namespace kelt::check {
namespace {

namespace paths = helper::paths;

/// Less than this left after a switch is little.
constexpr std::uint64_t kReserve = std::uint64_t{256} * 1024;
constexpr std::uint64_t kInodeReserve = 16;
/// A key file or a small file of settings.
constexpr std::uint64_t kSmallFile = 4096;

/// What is to be written to one file system.
struct Need {
  std::string directory;
  struct statvfs system;
  std::uint64_t blocks = 0;
  std::uint64_t files = 0;
};

/// Each file takes whole blocks, and an empty one at least its place in the directory.
std::uint64_t blocksOf(std::uint64_t bytes, const struct statvfs& system) {
  // Not every file system tells the size of its blocks.
  const std::uint64_t block = system.f_frsize == 0 ? 4096 : system.f_frsize;
  return std::max<std::uint64_t>(1, (bytes + block - 1) / block);
}

/// The loads by file system: all files are there at the same time, old and new.
std::map<dev_t, Need> needsOf(const std::vector<Load>& loads) {
  std::map<dev_t, Need> needs;
  for (const Load& load : loads) {
    const auto info = lookAt(load.directory);
    const auto system = fileSystemOf(load.directory);
    if (!info || !system) continue;
    Need& need = needs.try_emplace(info.value().st_dev, Need{load.directory, system.value()}).first->second;
    for (const std::uint64_t size : load.sizes)
      need.blocks += blocksOf(size, need.system);
    need.files += load.sizes.size();
  }
  return needs;
}

/// For people; in small steps, as devices are small.
std::string kilobytes(std::uint64_t blocks, const struct statvfs& system) {
  return std::to_string(blocks * system.f_frsize / 1024) + " KiB";
}

void check(const Need& need, const std::string& id, Findings& findings) {
  const struct statvfs& system = need.system;
  const std::uint64_t reserve = blocksOf(kReserve, system);
  const std::uint64_t free = system.f_bfree;  // root may take what is kept for it
  const std::uint64_t files = system.f_ffree;
  // Some file systems make inodes as they need them, and count none; some count no blocks.
  const bool bCountsFiles = system.f_files != 0;
  const bool bCountsBlocks = system.f_blocks != 0;
  const std::string fact = "The file system of " + need.directory + " has " + kilobytes(free, system) +
                           (bCountsFiles ? " and " + std::to_string(files) + " inodes" : std::string()) +
                           " free; a switch takes up to " + kilobytes(need.blocks, system) + " and " +
                           std::to_string(need.files) + " inodes";
  constexpr const char* kRemedy = "Delete what is not needed there, or make the file system larger.";
  const bool bTooFull = (bCountsBlocks && free < need.blocks) || (bCountsFiles && files < need.files);
  const bool bNearly =
      (bCountsBlocks && free < need.blocks + reserve) || (bCountsFiles && files < need.files + kInodeReserve);
  const State state = bTooFull ? State::kProblem : bNearly ? State::kWarning : State::kOk;
  findings.put(state, id, fact, kRemedy, need.directory);
}

/// What replaces it will be of about that size.
std::uint64_t sizeOf(const std::string& path) {
  const auto info = lookAt(path);
  return info ? static_cast<std::uint64_t>(info.value().st_size) : kSmallFile;
}

}  // namespace

void checkRoomFor(const std::vector<Load>& loads, const std::string& id, Findings& findings) {
  for (const auto& [device, need] : needsOf(loads))
    check(need, id, findings);
}

void checkRoom(const Device& device, Findings& findings) {
  findings.begin("room.file-system", {});
  const std::string etc = paths::kScratchEtcDir;
  std::vector<Load> loads = {
      {paths::kInstallDir, std::vector<std::uint64_t>(4, kSmallFile)},
      {etc, {sizeOf(etc + paths::kSiteList)}},
      {device.dataDirectory, std::vector<std::uint64_t>(4, kSmallFile)},
  };
  if (!device.agentConfigPath.empty()) loads.push_back({base::directoryOf(device.agentConfigPath), {kSmallFile}});
  checkRoomFor(loads, "room.file-system", findings);
}

}  // namespace kelt::check
