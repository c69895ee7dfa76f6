#include "helper/start_promise.h"

#include <optional>
#include <utility>

#include "base/guard_process.h"
#include "helper/agent_log.h"
#include "helper/agent_paths.h"
#include "helper/owed_start.h"
#include "helper/run_lock.h"
#include "helper/unix_command_line_helper.h"

namespace kelt::helper {
namespace {

using base::GuardProcess;

/// Another run that works so long is not the one to wait for.
constexpr int kLockTries = 12;

bool bAnythingOwed() {
  return bOwed(Owed::kStart) || bOwed(Owed::kPlugIns);
}

/// Waits for the lock. Returns false where that is of no use any more, or in vain.
bool take(InterProcessWriteLock& lock) {
  // A run that holds the lock may pay the debts itself; then there is nothing left to wait for.
  for (int tries = 0; tries < kLockTries && bAnythingOwed(); ++tries) {
    if (lock.lock(kLockSeconds)) return true;
  }
  return false;
}

void payDebts(unixCommandLineHelper& agent) {
  if (bOwed(Owed::kStart)) {
    logProblem("A run ended before it started the agent again, which is started now.");
    if (!agent.StartORVService()) logProblem("The agent could not be started.");
  } else if (bOwed(Owed::kPlugIns)) {
    // Only for an agent that runs: a start loads them by itself.
    logProblem("A run ended before it loaded the agent's plug-ins again, which are loaded now.");
    agent.loadPlugIns();
  }
}

/// What the guard does after the death of the run. A run that came meanwhile may have paid by then.
void startInItsStead(unixCommandLineHelper& agent) {
  InterProcessWriteLock lock(paths::kInstanceLock);
  if (!take(lock)) return;
  payDebts(agent);  // who looks again what is owed, now that nobody can change it
  static_cast<void>(giveLockBack(lock));
}

/// A run that is killed needs its guard, and a moment later the system may have what it takes.
constexpr int kGuardTries = 3;

/// Null where none can be made, which the log says.
std::optional<GuardProcess> guardFor(unixCommandLineHelper& agent) {
  for (int tries = 1;; ++tries) {
    auto guard = GuardProcess::start([&agent] { startInItsStead(agent); });
    if (guard) return std::move(guard).value();
    if (tries < kGuardTries) continue;
    logProblem("No guard starts the agent should this run die: " + guard.error().message);
    return std::nullopt;
  }
}

class GuardedPromise final : public StartPromise {
 public:
  explicit GuardedPromise(unixCommandLineHelper& agent) : m_agent(agent), m_guard(guardFor(agent)) {
    // Without a guard, too: the marks are there for whoever takes the lock next.
    m_agent.setStartPromised(true);
  }
  GuardedPromise(const GuardedPromise&) = delete;
  GuardedPromise& operator=(const GuardedPromise&) = delete;
  ~GuardedPromise() override {
    m_agent.setStartPromised(false);
    if (m_guard && bOwed(Owed::kStart)) m_guard->takeOver();
  }

 private:
  unixCommandLineHelper& m_agent;
  std::optional<GuardProcess> m_guard;
};

}  // namespace

std::unique_ptr<StartPromise> guardedPromise(unixCommandLineHelper& agent) {
  return std::make_unique<GuardedPromise>(agent);
}

}  // namespace kelt::helper
