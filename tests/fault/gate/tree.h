#pragma once
// The files of the device, all of them with their contents.

#include <compare>
#include <map>
#include <string>
#include <sys/types.h>

namespace kelt::tests::gate {

struct Entry {
  char kind = 'f';      ///< 'f' file, 'd' directory, 'l' symbolic link, '?' anything else
  mode_t mode = 0644;   ///< permission bits
  std::string content;  ///< or the target of the link
  auto operator<=>(const Entry&) const = default;
};

/// Absolute path to entry, parents before what they hold.
using Tree = std::map<std::string, Entry>;

/// Everything below the directories that belong to a trial; not these themselves.
[[nodiscard]] Tree deviceTree();

/// Makes the device hold `wanted` and nothing else there.
void bringDeviceTo(const Tree& wanted);

/// Gives this process its own, empty directories for trials, in memory. It must be on a private device already.
void separateDevice();

/// Adds a file, and the directories (0755) that it needs.
void put(Tree& tree, const std::string& path, std::string content, mode_t mode = 0644);
void putDirectory(Tree& tree, const std::string& path, mode_t mode = 0755);

/// The content of a file of this machine. Ends the program with a message when it cannot be read.
[[nodiscard]] std::string readFile(const std::string& path);

/// Ends the program with a message unless `done`.
void require(bool done, const std::string& what);

}  // namespace kelt::tests::gate
