#pragma once
// The lock by which one run at a time works on the agent, as all its holders take it and give it back.

#include <cstdint>

#include "platform/interprocess_write_lock.h"

namespace kelt::helper {

/// How long a holder waits for the lock, in seconds: well above what a switch takes that nothing disturbs.
inline constexpr std::uint32_t kLockSeconds = 300;

/// Gives back the lock of that name (kInstanceLock), which `lock` holds, and removes it from the system when nobody
/// else has taken it by then. Returns false where it was not held any more; whoever has it now then keeps it, file
/// included. Without memory its file stays, unlocked, for the next holder to use.
bool giveLockBack(InterProcessWriteLock& lock) noexcept;

}  // namespace kelt::helper
