#pragma once
// The file of the properties that an administrator gives the agent to report.

#include "app/command_line_data.h"

namespace kelt::app {

/// Makes the custom properties file hold exactly the properties set in `data`: deletes it, with a message where that
/// fails, then adds one property after the other. A property that cannot be written is left out without a word. The
/// file keeps owner, group and permissions of the one that was deleted; a new one is 0644. SIGINT, SIGTERM and SIGHUP
/// wait. A run that is killed leaves the old file, none, or one with the first few properties. Throws std::bad_alloc,
/// with a file as after a kill.
void replaceCustomProperties(CommandLineData& data);

}  // namespace kelt::app
