#pragma once
// Ownership of a directory that is being listed.

#include <dirent.h>
#include <memory>

namespace kelt::base {

/// Ends a listing, and closes its descriptor.
struct CloseListing {
  void operator()(DIR* listing) const { ::closedir(listing); }
};

/// What opendir and fdopendir give; null where that failed, with errno.
using Listing = std::unique_ptr<DIR, CloseListing>;

}  // namespace kelt::base
