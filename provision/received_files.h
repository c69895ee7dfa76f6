#pragma once
// The files in the directory that a package was unpacked into, and those that somebody else put there.

#include <string>

namespace kelt::provision {

/// Removes strangers' files: whatever stands in `directory` under the name of a key file or of the site list (as it is
/// received, and as the switch wants it) and is not a regular file of this process's user, under one name only and
/// closed to other users' writing. Each one is told in the agent's log.
///
/// To be called once the package is unpacked, as its own files replace what stands under their names, and before
/// anything of it is read.
///
/// Returns whether none is left; all that can be removed are gone even then. A directory cannot be removed, for
/// instance. One under a name that provisioning is about to write itself is left to that step, which fails there with a
/// status of its own, and does not count.
[[nodiscard]] bool removeStrangers(const std::string& directory);

/// Makes the legacy form of a key, empty, where the package brought its 2048-bit form alone, as the switch would do
/// later: from now on nobody can put a key of his own under that name, in a directory that is sticky. Whatever stands
/// there by then is replaced. What cannot be made is left to the switch.
void claimLegacyNames(const std::string& directory);

}  // namespace kelt::provision
