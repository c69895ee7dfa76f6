#pragma once

#include "app/command_line_data.h"

namespace kelt::app {

/// Makes the custom properties file hold exactly the properties set in `data`: deletes it, with a message where that
/// fails, then adds one property after the other. A property that cannot be written is left out without a word. The
/// file keeps owner, group and permissions of the one that was deleted; a new one is 0644. SIGINT, SIGTERM and SIGHUP
/// wait. A run that is killed leaves the old file, none, or one with the first few properties.
void replaceCustomProperties(CommandLineData& data);

}  // namespace kelt::app
