#include "base/signals.h"

#include <utility>

namespace kelt::base {
namespace {

constexpr int kEnding[] = {SIGINT, SIGTERM, SIGHUP};

void setAction(int signal, void (*handler)(int)) {
  struct sigaction action {};
  action.sa_handler = handler;
  ::sigaction(signal, &action, nullptr);
}

}  // namespace

// A started command gets both with their default action again (resetSignalsForChild).
void ignoreOutputSignals() {
  setAction(SIGPIPE, SIG_IGN);
  setAction(SIGXFSZ, SIG_IGN);
}

void ignoreEndingSignals() {
  for (const int signal : kEnding)
    setAction(signal, SIG_IGN);
}

void resetSignalsForChild() {
  // The actions first: what is unblocked at the end then meets no handler of ours. The few signals that cannot be set
  // have nothing to reset.
  for (int signal = 1; signal < NSIG; ++signal)
    setAction(signal, SIG_DFL);
  sigset_t none;
  ::sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
}

DeferredSignals::DeferredSignals() : m_before() {
  sigset_t deferred;
  ::sigemptyset(&deferred);
  for (const int signal : kEnding)
    ::sigaddset(&deferred, signal);
  ::sigprocmask(SIG_BLOCK, &deferred, &m_before);
}

DeferredSignals::DeferredSignals(DeferredSignals&& other) noexcept
    : m_before(other.m_before), m_bActive(std::exchange(other.m_bActive, false)) {}

DeferredSignals::~DeferredSignals() {
  // What came meanwhile is delivered before this call returns.
  if (m_bActive) ::sigprocmask(SIG_SETMASK, &m_before, nullptr);
}

}  // namespace kelt::base
