#pragma once
// Asking the system again where its first answer says nothing.

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

/// Asks a question, and where the answer is no, once more: for an answer that others build on, as a single call that
/// the system refuses must not pass for a fact. `ask` returns whether it is yes. Returns the last answer; what `ask`
/// throws goes through.
template <typename Ask>
bool askTwice(Ask ask) {
  if (ask()) return true;
  return ask();
}

}  // namespace kelt::base
