#include "check/check.h"

namespace kelt::check {

const char* nameOf(State state) {
  switch (state) {
    case State::kOk:
      return "ok";
    case State::kWarning:
      return "warning";
    case State::kProblem:
      return "problem";
    case State::kUnknown:
      break;
  }
  return "unknown";
}

std::string_view groupOf(std::string_view id) {
  return id.substr(0, id.find('.'));
}

std::string_view firstOf(const Facts& facts, std::string_view name) {
  const auto found = facts.find(name);
  return found == facts.end() || found->second.empty() ? std::string_view() : found->second.front();
}

}  // namespace kelt::check
