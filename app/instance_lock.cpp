#include "app/instance_lock.h"

#include <new>
#include <stdexcept>

#include "helper/agent_log.h"
#include "helper/agent_paths.h"

namespace kelt::app {
namespace {

constexpr const char* kLockName = helper::paths::kInstanceLock;
constexpr std::uint32_t kLockSeconds = 300;

}  // namespace

lock_raii::lock_raii() : timeout(kLockSeconds), lock(kLockName) {
  if (lock.lock(timeout)) return;
  helper::logEvent("Unable to acquire lock");
  throw std::runtime_error("Failed to get keltconfig lock");
}

lock_raii::~lock_raii() {
  try {
    if (!lock.unlock()) helper::logEvent("Unable to unlock interprocess lock");
    // Holding it again means that nobody waits for it or has it: only then may its object go.
    if (lock.tryLock() != 0) InterProcessWriteLock::cleanSemaphore(kLockName);
  } catch (const std::bad_alloc&) {
    // The file of the lock stays, unlocked, for the next run to use.
  }
}

}  // namespace kelt::app
