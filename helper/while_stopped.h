#pragma once
// The agent stands still for as long as a piece of work takes, and is then started again, whatever came of the work.

#include <functional>

#include "helper/command_line_helper.h"

namespace kelt::helper {

/// When the agent is started after the work.
enum class StartAgain {
  kAlways,
  kAfterFailure,  ///< an agent that is to stay stopped, unless the work fails
  kNever,
};

/// What became of the agent and of the work.
struct Interruption {
  bool bStopped = false;      ///< else the work was not begun
  bool bDone = false;         ///< the work returned true
  bool bStartFailed = false;  ///< the agent was to be started, and could not be
};

/// Stops the agent, does `work`, which returns whether it succeeded, and starts the agent as `startAgain` says, all by
/// the operations of `agent`. An exception of the work counts as its failure. One on stopping may have come after the
/// agent's commands were run: the work is not begun, and the agent is started unless it is never to be. One on starting
/// is answered by a second try. Each exception is a line in the agent's log; none leaves this function.
///
/// What a start takes is reserved before the stop, for a start that the system would refuse by then (reserveStart).
/// Where the agent is to run again in any case, its promiseStart holds from before the stop to after the start.
///
/// From before the stop to after the start SIGINT, SIGTERM and SIGHUP wait.
[[nodiscard]] Interruption whileStopped(CommandLineHelper& agent, StartAgain startAgain,
                                        const std::function<bool()>& work) noexcept;

}  // namespace kelt::helper
