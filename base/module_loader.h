#pragma once
// Loading the parts of the tool that only some runs need.

#include <string>

#include "base/result.h"

namespace kelt::base {

/// Loads the shared object "keltconfig-<name>.so" and looks up `symbol`. It is taken by absolute path from the
/// directory of the running binary, or else from the installation's library directory; never through a search path, so
/// that no environment variable and no working directory chooses what root runs. The object stays loaded to the end.
/// Errors: kNotFound when neither place has it, kSystem with the loader's message when it does not load.
[[nodiscard]] Result<void*> loadModuleSymbol(const std::string& name, const char* symbol);

}  // namespace kelt::base
