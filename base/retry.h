#pragma once

#include <cerrno>

namespace kelt::base {

/// Calls `call`, a system call that returns -1 with errno on failure, again as long as a signal interrupts it.
template <typename Call>
auto retryInterrupted(Call call) {
  auto result = call();
  while (result == -1 && errno == EINTR)
    result = call();
  return result;
}

}  // namespace kelt::base
