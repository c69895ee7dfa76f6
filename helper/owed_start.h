#pragma once
// What the agent is owed by a run that stops it only for a while.
//
// Each debt is a mark, a file in the directory of the lock, made and removed under the lock: it outlives the run that
// made it, and tells whoever takes the lock next. The directory is in memory: a device that comes up anew starts
// the agent by itself.

#include <sys/types.h>

namespace kelt::helper {

enum class Owed {
  kStart,    ///< the agent was stopped: "agent-stopped"
  kPlugIns,  ///< plug-ins were unloaded: "plug-ins-unloaded"
};

/// Makes the mark. For a child, between fork and exec, just before it becomes the command that makes the debt, so that
/// there is no moment at which mark and agent differ (async-signal-safe). The mark says which process this is. What the
/// system refuses is tried again at once, a few times; what cannot be made is done without.
void owe(Owed what) noexcept;

/// Waits until the command that made the debt last has ended, 5 minutes at most: a run that is killed leaves its
/// command running, and an agent that is started beside its stop is stopped in the end. Returns at once where there is
/// no mark, or one that does not say who made it.
void awaitCommand(Owed what) noexcept;

/// The process that made the debt last, where it still runs; 0 where it does not, or the mark does not say or cannot be
/// read. Only looks.
[[nodiscard]] pid_t runningCommand(Owed what) noexcept;

/// Removes the mark, if it is there, likewise, and tried again likewise: for the child that becomes the command that
/// pays the debt.
void settle(Owed what) noexcept;

/// Whether the mark is there. One that cannot be examined, tried again likewise, is taken for absent.
[[nodiscard]] bool bOwed(Owed what) noexcept;

}  // namespace kelt::helper
