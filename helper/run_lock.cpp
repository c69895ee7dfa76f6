#include "helper/run_lock.h"

#include <new>

#include "helper/agent_paths.h"

namespace kelt::helper {

bool giveLockBack(InterProcessWriteLock& lock) noexcept {
  const bool bHeld = lock.unlock();
  try {
    // Holding it again means that nobody waits for it or has it: only then may its object go. To remove it first would
    // let in a second holder, by a new file, beside whoever gets the lock of the removed one.
    if (lock.tryLock() != 0) InterProcessWriteLock::cleanSemaphore(paths::kInstanceLock);
  } catch (const std::bad_alloc&) {
    return bHeld;
  }
  return bHeld;
}

}  // namespace kelt::helper
