#pragma once

namespace kelt::base {

/// Whether the system gives this process any memory. Where it does not, there is none for an exception either, which
/// would tell so: to be asked before the first one may be thrown.
[[nodiscard]] bool bAnyMemory() noexcept;

}  // namespace kelt::base
