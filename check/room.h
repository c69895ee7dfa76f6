#pragma once
// Whether file systems have room for what a switch writes.

#include <cstdint>
#include <string>
#include <vector>

#include "check/findings.h"

namespace kelt::check {

/// Files that are written into one directory.
struct Load {
  std::string directory;
  std::vector<std::uint64_t> sizes;  ///< in bytes
};

/// Checks each file system that the directories are on for blocks and inodes: a problem where they do not do for all
/// files at once, a warning where they do with little left. A directory that cannot be examined is passed over.
/// What a file system keeps for root counts as free, as the tool runs as root.
void checkRoomFor(const std::vector<Load>& loads, const std::string& id, Findings& findings);

}  // namespace kelt::check
