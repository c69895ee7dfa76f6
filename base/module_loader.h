#pragma once
// Loading the parts of the tool that only some runs need.

#include <string>

#include "base/result.h"
#include "base/trusted_file.h"

namespace kelt::base {

/// Finds and judges the shared object "keltconfig-<name>.so" as loadModuleSymbol does, and loads nothing. Errors:
/// kNotFound, kRefused, kSystem as there.
[[nodiscard]] Result<OpenedFile> findModule(const std::string& name);

/// Loads the shared object "keltconfig-<name>.so" and looks up `symbol`. It is taken by absolute path from the
/// directory of the running binary, or else from the installation's library directory; never through a search path, so
/// that no environment variable and no working directory chooses what root runs. It and the directory that it stands in
/// (base/trusted_file.h, links resolved) must belong to root or to the owner of the binary, and none but the owner and
/// a group of the owner's own may write to them; they are judged as they were opened, and what was judged is what is
/// loaded. The object stays loaded to the end, and one descriptor of its directory stays open with it.
/// Errors: kNotFound when neither place has it; kRefused, with path and reason, when it is not to be trusted; kSystem
/// with the loader's message when it does not load. Needs /proc.
[[nodiscard]] Result<void*> loadModuleSymbol(const std::string& name, const char* symbol);

}  // namespace kelt::base
