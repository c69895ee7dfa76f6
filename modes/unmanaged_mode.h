#pragma once
// The end of a switch to unmanaged mode that another run began.

#include "helper/unfinished_work.h"

namespace kelt::modes {

/// Finishes the switch to unmanaged mode that `mark` was found to speak of, on a stopped agent: where the installed
/// site list has no servers any more, deletes what belonged to them. Where it still has some, nothing had been done
/// yet, and nothing is. The mark is removed, also where something could not be deleted, which the log tells. Says
/// nothing on the console. Throws std::bad_alloc, with the mark still there.
void finishUnmanagedSwitch(helper::WorkMark& mark);

}  // namespace kelt::modes
