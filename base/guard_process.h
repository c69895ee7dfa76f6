#pragma once
// A process that acts when this one dies in the middle of something.

#include <functional>

#include "base/result.h"
#include "base/unique_fd.h"

namespace kelt::base {

/// While it lives, a second process watches this one: should this one end without having dismissed it, killed or
/// crashed, it acts. It is a copy of this process made by two forks, so that no wait for a child meets it, in a session
/// of its own, so that no signal to this one's group or terminal reaches it. It ignores SIGINT, SIGTERM and SIGHUP, and
/// has no descriptor but /dev/null as its standard ones and the reading end of a pipe, so that nobody who waits for an
/// output of this process waits for it. It shares the memory of this process as it is when the guard is started: that
/// should hold no secret then.
class GuardProcess {
 public:
  /// Starts it. `action` is what it does, in the guard, after the death of this process (and of any child of this one
  /// that has not started its own program yet); the guard ends after it, whatever is thrown in it. To be called in a
  /// process of one thread that ignores SIGPIPE. Errors: kSystem, where the system refuses a process or a descriptor;
  /// nothing is left then.
  [[nodiscard]] static Result<GuardProcess> start(const std::function<void()>& action);

  GuardProcess(GuardProcess&&) = default;
  GuardProcess& operator=(GuardProcess&&) = delete;
  /// Dismisses it: it ends without having acted, unless it was told to take over.
  ~GuardProcess();

  /// Lets it act as if this process had died, without waiting for it.
  void takeOver() { m_farewell.reset(); }

 private:
  explicit GuardProcess(UniqueFd farewell) : m_farewell(std::move(farewell)) {}

  UniqueFd m_farewell;  // the writing end of the pipe
};

}  // namespace kelt::base
