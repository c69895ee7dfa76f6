#pragma once
// Seeing to it that an agent that is stopped for a while is started, even where the run dies in between.

#include <memory>

#include "helper/command_line_helper.h"

namespace kelt::helper {

class unixCommandLineHelper;

/// Starts a guard (base/guard_process.h) that starts `agent` should this run die while the agent is owed its start
/// (helper/owed_start.h): it waits for the lock, runs what StartORVService runs, or only what loads the plug-ins where
/// the agent itself runs, and logs that. Where no guard can be made, in several tries, that is logged, and the run goes
/// on without.
///
/// The end of the promise dismisses the guard, unless the agent is still owed its start, as where the system had no
/// process for the start command: then the guard goes on trying once this run has ended.
[[nodiscard]] std::unique_ptr<StartPromise> guardedPromise(unixCommandLineHelper& agent);

}  // namespace kelt::helper
