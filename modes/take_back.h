#pragma once
// The key files that a failed managed switch takes back, told to whoever has to finish that.

#include <string>
#include <vector>

#include "helper/unfinished_work.h"

namespace kelt::modes {

/// The plan of a mark of the work kTakeBack for copies of these names (helper/agent_paths.h) in the installation: a
/// line for each, with what tells the copy from any file that comes under its name later.
/// A name under which nothing can be examined gets no line: what comes there later is not the switch's to delete.
[[nodiscard]] std::string planOfTakingBack(const std::vector<std::string>& names);

/// Finishes the taking back that `mark` was found to speak of, on a stopped agent: deletes the copies that are still
/// there, and brings that to the disk. The mark is removed. Says nothing on the console.
void finishTakingBack(helper::WorkMark& mark);

}  // namespace kelt::modes
