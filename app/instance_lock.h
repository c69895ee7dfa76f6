#pragma once
// One run at a time.

#include <cstdint>

#include "platform/interprocess_write_lock.h"

namespace kelt::app {

/// Keeps other runs of this tool, and whoever else uses the same lock, away from the agent while it lives. It is taken
/// before anything else is done, and given back after everything; the system gives it back for a run that is killed.
class lock_raii {
 public:
  /// Takes the lock, waiting up to 300 seconds. Throws std::runtime_error, with nothing held and a line in the agent's
  /// log, when it was not to be had in that time.
  lock_raii();
  lock_raii(const lock_raii&) = delete;
  lock_raii& operator=(const lock_raii&) = delete;
  /// Gives the lock back, and removes it from the system when nobody else has taken it by then. A failure is logged and
  /// changes nothing.
  ~lock_raii();

 private:
  const std::uint32_t timeout;  // in seconds
  InterProcessWriteLock lock;
};

}  // namespace kelt::app
