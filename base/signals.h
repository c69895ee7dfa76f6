#pragma once
// Signals of the whole run: which ones wait, which ones are ignored, and what a child starts with.

#include <csignal>

namespace kelt::base {

/// Ignores SIGPIPE and SIGXFSZ, so that a closed output or a file size limit is an error of the write, not the end of
/// the run. Called once, at the start of main.
void ignoreOutputSignals();

/// Ignores SIGINT, SIGTERM and SIGHUP for good, in a process that has to outlive whatever they are meant to end.
void ignoreEndingSignals();

/// Gives every signal its default action and empties the signal mask. For a child, between fork and exec
/// (async-signal-safe).
void resetSignalsForChild();

/// While it lives, SIGINT, SIGTERM and SIGHUP wait: the work between stopping and starting the agent is finished first.
/// At the end the earlier mask comes back, and a signal that arrived meanwhile then ends the run as usual.
class DeferredSignals {
 public:
  /// Blocks the three in this thread, whatever the mask was. Two such objects may overlap, if the later
  /// one ends first.
  DeferredSignals();
  /// The new object ends what the old one began.
  DeferredSignals(DeferredSignals&& other) noexcept;
  DeferredSignals& operator=(DeferredSignals&&) = delete;
  /// Puts the earlier mask back.
  ~DeferredSignals();

 private:
  sigset_t m_before;      ///< the mask that comes back
  bool m_bActive = true;  ///< until another object takes it over
};

}  // namespace kelt::base
