#pragma once
// What starting the agent takes, kept for a moment at which the system gives nothing: no descriptor and no memory, or a
// disk that cannot be read. Both structures hold nothing but memory, which was taken when they were made.

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

/// The commands that start the agent and load the plug-ins, in their order, as they were read at one moment: all of
/// them, or there is no such object.
struct ReservedStart {
  PreparedCommand start;                ///< empty where the configuration names none
  std::vector<ReservedPlugIn> plugIns;  ///< of the products that name a command, in the order of the directory
};

}  // namespace kelt::helper
