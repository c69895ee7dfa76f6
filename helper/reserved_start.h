#pragma once
// What starting the agent takes, kept for a moment at which the system gives nothing.

#include <string>
#include <vector>

#include "helper/prepared_command.h"

namespace kelt::helper {

/// The load command of one product.
struct ReservedPlugIn {
  std::string directory;  ///< the product's, below the configuration directory
  PreparedCommand load;
  bool bSettled = false;  ///< in the pass that is under way: read anew, whatever came of that
};

/// The commands that start the agent and load the plug-ins, in their order, as they were read at one moment.
struct ReservedStart {
  PreparedCommand start;
  std::vector<ReservedPlugIn> plugIns;
};

}  // namespace kelt::helper
