#include "helper/while_stopped.h"

#include <exception>
#include <new>
#include <string>

#include "base/signals.h"
#include "platform/astring.h"
#include "platform/logger.h"

namespace kelt::helper {
namespace {

using quorvane_com::orv::tellcomn_ansi_to_wide;

/// Puts into the log what ended a step. Where even that lacks memory, the run goes on without the line.
void logFailure(const wchar_t* step, const char* why) noexcept {
  try {
    logError(L"keltcfg", (step + tellcomn_ansi_to_wide(why)).c_str());
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
    logFailure(L"Nothing is kept for the start of the agent: ", error.what());
  }
}

/// Only where the agent is to run again in any case. Without a promise, which may lack memory too, the work goes on.
std::unique_ptr<StartPromise> promiseOf(CommandLineHelper& agent, StartAgain startAgain) noexcept {
  if (startAgain != StartAgain::kAlways) return nullptr;
  try {
    return agent.promiseStart();
  } catch (const std::exception& error) {
    logFailure(L"No guard starts the agent should this run die: ", error.what());
    return nullptr;
  }
}

enum class Ended { kWell, kBadly, kThrew };

/// Takes a step. `failed` is the log's text for an exception, followed by what it was.
template <typename Step>
Ended attempt(const wchar_t* failed, const Step& step) noexcept {
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

/// An exception is no answer: what the first try gave back may be what it had lacked.
bool bStart(CommandLineHelper& agent) noexcept {
  const auto start = [&] { return attempt(L"Starting the agent failed: ", [&] { return agent.StartORVService(); }); };
  Ended ended = start();
  if (ended == Ended::kThrew) ended = start();
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
  const Ended stop = attempt(L"Stopping the agent failed: ", [&] { return agent.StopORVService(); });
  if (stop == Ended::kBadly) return {};
  Interruption result;
  result.bStopped = stop == Ended::kWell;
  result.bDone = result.bStopped && attempt(L"The work on the stopped agent failed: ", work) == Ended::kWell;
  result.bStartFailed = bToStart(startAgain, result.bDone) && !bStart(agent);
  return result;
}

}  // namespace kelt::helper
