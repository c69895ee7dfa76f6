#pragma once
// A named lock between processes that no killed holder leaves behind.

#include <string>
#include <sys/types.h>

#include "base/result.h"
#include "base/unique_fd.h"

/// The lock is a file of its name in "/run/orv-locks" (made 0700 if missing; a directory of its own, as others of the
/// agent's programs may keep theirs below /run as they like), held by an open-file-description write lock: it goes with
/// the process that holds it, is never inherited by a started command, and waiting for it costs no processor time.
/// Names are plain file names; one that is empty, starts with "." or contains "/" can never be locked.
class InterProcessWriteLock {
 public:
  explicit InterProcessWriteLock(const std::string& name);
  InterProcessWriteLock(const InterProcessWriteLock&) = delete;
  InterProcessWriteLock& operator=(const InterProcessWriteLock&) = delete;
  /// Releases the lock if it is held.
  ~InterProcessWriteLock();

  /// Takes the lock, waiting up to `seconds`; SIGALRM ends the wait at once (the caller's handler, mask and timer are
  /// put aside for its length). A lock that this object holds already counts as taken. Returns false when the time is
  /// over, or the lock file cannot be used (not a regular file of this user with one link and no permission for others;
  /// a directory that others may write to).
  [[nodiscard]] bool lock(unsigned int seconds);

  /// Releases the lock. Returns false when it was not held.
  [[nodiscard]] bool unlock();

  /// Takes the lock if that is possible without waiting, or holds it already. Returns non-zero then.
  [[nodiscard]] int tryLock();

  /// Looks how the named lock stands for a process of the user `owner`, and takes, makes and changes nothing: whether
  /// somebody holds it. Errors, as lock() would fail by them: kRefused; kSystem, where it cannot be examined.
  [[nodiscard]] static kelt::Result<bool> held(const std::string& name, uid_t owner);

  /// Removes the named object. To be called while holding the lock (tryLock), as the last act before its destruction:
  /// whoever waits for it then starts again with a new file.
  static void cleanSemaphore(const std::string& name);

 private:
  std::string m_path;         ///< empty for a name that no lock can have
  kelt::base::UniqueFd m_fd;  ///< of the locked file; none while the lock is not held
};
