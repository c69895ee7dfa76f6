#pragma once
// Locks of whole files, between processes.

#include <optional>
#include <string>
#include <sys/stat.h>  // IWYU pragma: keep

namespace kelt::base {

/// How a file is locked: by several who all say kShared, or by one.
enum class FileLock { kShared, kExclusive };

/// Locks the whole open file, in place of whatever lock this descriptor holds, without waiting. The lock belongs to the
/// open file description: it goes with the last descriptor of that, one in a child between fork and exec included. A
/// lock of the process would go with the first descriptor of the file that anybody in it closes. `fd` is open for
/// reading where the lock is shared, for writing where it is exclusive. False, with errno (EAGAIN where another lock is
/// in the way), when it cannot be taken; the lock held is then as it was.
[[nodiscard]] bool tryFileLock(int fd, FileLock kind);

/// The same, waiting until nothing is in the way. False also, with errno EINTR, when a signal came meanwhile whose
/// handler does not restart system calls.
[[nodiscard]] bool waitForFileLock(int fd, FileLock kind);

/// Gives the lock up. False, with errno, when the system refuses. A descriptor that holds none has nothing to give up,
/// which is done.
bool releaseFileLock(int fd);

/// Looks whether the lock of another open file description is on the file of `fd`, which may be open for reading alone.
/// Takes none. Nothing, with errno, when the system does not tell.
[[nodiscard]] std::optional<bool> lookForOtherLock(int fd);

/// Whether `path` itself still names the file whose fstat said `opened`; a symbolic link there is another file. To be
/// asked under the lock, as others may have moved or removed the file after it was opened. False also when the system
/// does not tell.
[[nodiscard]] bool bStillNamed(const std::string& path, const struct stat& opened);

}  // namespace kelt::base
