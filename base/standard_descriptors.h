#pragma once
// The descriptors that every program is given, and that a caller may have closed.

namespace kelt::base {

/// Opens /dev/null on whichever of the descriptors 0, 1 and 2 is closed, so that no file opened later becomes standard
/// input, output or error. Returns false when that is not possible (no /dev/null); the run must then not go on.
[[nodiscard]] bool openStandardDescriptors();

}  // namespace kelt::base
