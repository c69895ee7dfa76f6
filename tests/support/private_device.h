#pragma once
// The device that unit tests run on: a root file system of their own, in memory, in namespaces of their own.

#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <sys/types.h>
#include <vector>

namespace kelt::tests {

/// Runs this program anew on a private device, and ends it as that run ended; returns at once in that run. The device
/// has mount, IPC, network, host name and process namespaces of its own (and a user namespace in which it is uid 0,
/// where it is not root), a root in memory with the machine's /usr, and an empty device below /etc/orv.d, /opt, /run
/// and /tmp. Nothing of the machine can be changed from there, the checkout included: tests/data (KELT_TEST_DATA) and
/// the directory of this program are there read-only, the rest is not. Whatever is left running ends with this process,
/// however that ends. Where the system refuses a /proc for new process namespaces there is none, and children end with
/// their parents. Signals that its caller ignores or blocks have their effect in that run. Call it first in main, with
/// its `argv`. Ends the program with a message and status 99 where the system refuses more.
void enterPrivateDevice(char** arguments);

/// Ends the program, with a message and status 99, when it was asked for a file with its results: it would be in the
/// device, and gone with it.
void refuseOutputFiles();

/// Gives the device new, empty file systems: /etc/orv.d, /opt/Quorvane and /run are directories of root with mode 0755,
/// /tmp with 1777. Nothing is removed: what was there, and all that was mounted there, is left to itself.
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
