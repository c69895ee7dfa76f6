#pragma once
// The device that unit tests run on: a root file system of their own, in memory, in namespaces of their own.

#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <sys/types.h>
#include <vector>

namespace kelt::tests {

/// Moves this process into a private device: new mount, IPC, network and host name namespaces (and a user namespace in
/// which it is uid 0, when it is not root), a root in memory with the machine's /usr, /dev and /proc, the source and
/// the build tree, and an empty device below /etc/orv.d, /opt, /run and /tmp. Nothing outside can be changed from there
/// except the build tree. Ends the program with a message where the system refuses that.
void enterPrivateDevice();

/// Empties /etc/orv.d, /opt/Quorvane, /run and /tmp, which then exist as directories of root with mode 0755 (/tmp
/// 1777).
void resetDevice();

/// A test that starts on an empty device, with the working directory "/".
class PrivateDevice : public ::testing::Test {
 protected:
  void SetUp() override;
};

/// Writes a file with exactly this mode, making missing directories (0755).
void putFile(const std::string& path, const std::string& content, mode_t mode = 0644);

/// Makes a directory with exactly this mode, and missing parents (0755).
void putDirectory(const std::string& path, mode_t mode = 0755);

/// The content of a file; fails the test and returns "" when it cannot be read.
[[nodiscard]] std::string contentOf(const std::string& path);

[[nodiscard]] bool exists(const std::string& path);

/// Permission bits, not following a link; 0 when there is nothing.
[[nodiscard]] mode_t modeOf(const std::string& path);

/// Names in a directory, sorted, "." and ".." left out.
[[nodiscard]] std::vector<std::string> namesIn(const std::string& directory);

/// Makes a directory at `path` that somebody other than uid 0 owns.
void putForeignDirectory(const std::string& path);

/// Makes `path` a file system of its own of `bytes` bytes (a tmpfs), until unmounted.
void mountSmall(const std::string& path, std::size_t bytes);

/// Binds `path` over itself read-only, until unmounted.
void mountReadOnly(const std::string& path);

/// Unmounts what mountSmall, mountReadOnly or putForeignDirectory mounted. resetDevice does so for what is left.
void unmount(const std::string& path);

/// What `action` writes to standard output and standard error (descriptors 1 and 2).
struct Output {
  std::string out;
  std::string err;
};
[[nodiscard]] Output outputOf(const std::function<void()>& action);

}  // namespace kelt::tests
