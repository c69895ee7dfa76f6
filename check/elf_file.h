#pragma once

namespace kelt::check {

/// Why the dynamic loader would not take the open file `fd` for a shared object of this machine, as far as its header
/// tells, as the end of a sentence; null where it would.
[[nodiscard]] const char* whyNoSharedObject(int fd);

}  // namespace kelt::check
