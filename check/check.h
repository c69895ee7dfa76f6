#pragma once
// What a run finds out: checks, each with what is the case and what to do about it, and facts about the device.

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace kelt::check {

enum class State {
  kOk,
  kWarning,  ///< the agent and its tools work, but not with everything, or not for long
  kProblem,  ///< a switch, a start or a stop of the agent would fail or leave it impaired, or already has
  kUnknown,  ///< it could not be found out
};

/// One finding. Its group is what stands before the "." of its identifier.
struct Check {
  std::string id;       ///< stable: never given to another question
  std::string subject;  ///< which of several things it is about; may be empty
  State state = State::kOk;
  std::string fact;    ///< a sentence
  std::string remedy;  ///< a sentence; empty where the state is ok
};

/// Facts by their names, each with one value or, of servers for instance, several.
using Facts = std::map<std::string, std::vector<std::string>, std::less<>>;

/// All that a run has found out.
struct Report {
  std::vector<Check> checks;  ///< in the order in which they were found
  Facts facts;
};

/// "ok", "warning", "problem" or "unknown".
[[nodiscard]] const char* nameOf(State state);

/// What stands before the "." of an identifier.
[[nodiscard]] std::string_view groupOf(std::string_view id);

/// The first value of a fact, or "".
[[nodiscard]] std::string_view firstOf(const Facts& facts, std::string_view name);

}  // namespace kelt::check
