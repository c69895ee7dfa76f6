#pragma once

#include "app/command_line_data.h"

namespace kelt::app {

/// Makes the custom properties file hold exactly the properties set in `data`: deletes it, with a message where that
/// fails, then adds one property after the other. A property that cannot be written is left out without a word.
void replaceCustomProperties(CommandLineData& data);

}  // namespace kelt::app
