#pragma once
// What belongs to a file besides its content, carried over to the file that replaces it.

#include "base/result.h"

namespace kelt::base {

/// Gives the empty file `to` the owner, group, permission bits and extended attributes of the file `from`, for it to
/// take that file's place. Left out are the attributes that vouch for the old content (file capabilities, integrity
/// hashes); labels and trusted attributes that the system does not let this process set are left as the system chose
/// them for a new file. An owner, an access list or a user's attribute that cannot be given is a failure, because the
/// file would then be open to others than before, or have lost something. Errors: kSystem; `to` is then of no use.
[[nodiscard]] Status copyAttributes(int from, int to);

}  // namespace kelt::base
