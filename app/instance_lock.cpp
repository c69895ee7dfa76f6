#include "app/instance_lock.h"

#include <stdexcept>

#include "helper/agent_log.h"
#include "helper/agent_paths.h"
#include "helper/run_lock.h"

namespace kelt::app {

lock_raii::lock_raii() : timeout(helper::kLockSeconds), lock(helper::paths::kInstanceLock) {
  if (lock.lock(timeout)) return;
  helper::logEvent("Unable to acquire lock");
  throw std::runtime_error("Failed to get keltconfig lock");
}

lock_raii::~lock_raii() {
  // No failure of the run, whose work is done: the lock goes with the last descriptor of its file at the latest.
  if (!helper::giveLockBack(lock)) helper::logEvent("Unable to unlock interprocess lock");
}

}  // namespace kelt::app
