#include "helper/while_stopped.h"

#include <exception>
#include <new>
#include <string>

#include "base/signals.h"
#include "helper/agent_log.h"

namespace kelt::helper {
namespace {

/// Puts into the log what ended a step. Where even that lacks memory, the run goes on without the line.
void logFailure(const char* step, const char* why) noexcept {
  try {
    logProblem(std::string(step) + why);
  } catch (...) {
    // There is nobody left to tell.
  }
}

/// Without it the work goes on: starting the agent then takes what the system gives at that moment.
void reserve(CommandLineHelper& agent, StartAgain startAgain) noexcept {
  if (startAgain == StartAgain::kNever) return;
  try {
    agent.reserveStart();
  } catch (const std::exception& error) {
    logFailure("Nothing is kept for the start of the agent: ", error.what());
  }
}

/// Only where the agent is to run again in any case. Without a promise, which may lack memory too, the work goes on.
std::unique_ptr<StartPromise> promiseOf(CommandLineHelper& agent, StartAgain startAgain) noexcept {
  if (startAgain != StartAgain::kAlways) return nullptr;
  try {
    return agent.promiseStart();
  } catch (const std::exception& error) {
    logFailure("No guard starts the agent should this run die: ", error.what());
    return nullptr;
  }
}

enum class Ended { kWell, kBadly, kThrew };

/// Takes a step. `failed` is the log's text for an exception, followed by what it was.
template <typename Step>
Ended attempt(const char* failed, const Step& step) noexcept {
  try {
    return step() ? Ended::kWell : Ended::kBadly;
  } catch (const std::bad_alloc&) {
    logFailure(failed, "out of memory");
  } catch (const std::exception& error) {
    logFailure(failed, error.what());
  } catch (...) {
    logFailure(failed, "an exception of an unknown kind");
  }
  return Ended::kThrew;
}

/// Starts the agent. An exception is no answer: what the first try gave back may be what it had lacked. Returns whether
/// it was started.
bool start(CommandLineHelper& agent) noexcept {
  const auto tryOnce = [&] { return attempt("Starting the agent failed: ", [&] { return agent.StartORVService(); }); };
  Ended ended = tryOnce();
  if (ended == Ended::kThrew) ended = tryOnce();
  return ended == Ended::kWell;
}

bool bToStart(StartAgain startAgain, bool bDone) {
  return startAgain == StartAgain::kAlways || (startAgain == StartAgain::kAfterFailure && !bDone);
}

}  // namespace

Interruption whileStopped(CommandLineHelper& agent, StartAgain startAgain, const std::function<bool()>& work) noexcept {
  const base::DeferredSignals untilTheAgentRuns;
  reserve(agent, startAgain);
  const std::unique_ptr<StartPromise> promise = promiseOf(agent, startAgain);
  const Ended stop = attempt("Stopping the agent failed: ", [&] { return agent.StopORVService(); });
  if (stop == Ended::kBadly) return {};  // nothing was run, so the agent still runs
  Interruption result;
  result.bStopped = stop == Ended::kWell;
  result.bDone = result.bStopped && attempt("The work on the stopped agent failed: ", work) == Ended::kWell;
  result.bStartFailed = bToStart(startAgain, result.bDone) && !start(agent);
  return result;
}

}  // namespace kelt::helper
