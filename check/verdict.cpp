#include "check/verdict.h"

#include <algorithm>
#include <cstddef>

#include "check/findings.h"

namespace kelt::check {
namespace {

/// Of the fact in the first line.
constexpr std::size_t kLongestFact = 500;

std::size_t countOf(const Report& report, State state) {
  const auto bIs = [&](const Check& check) { return check.state == state; };
  return static_cast<std::size_t>(std::count_if(report.checks.begin(), report.checks.end(), bIs));
}

/// The words, a comma between each; of many the first few, and of a long one its beginning, since monitoring systems
/// take a line of some thousand bytes at most.
std::string joined(const std::vector<std::string>& words) {
  constexpr std::size_t kShown = 4;
  constexpr std::size_t kLongest = 100;
  std::string text;
  for (std::size_t i = 0; i < words.size() && i < kShown; ++i)
    text.append(i == 0 ? "" : ", ").append(shortened(words[i], kLongest));
  if (words.size() > kShown) text.append(" and ").append(std::to_string(words.size() - kShown)).append(" more");
  return text;
}

/// The mode, the servers and the size of the server's key, each as far as it is known.
std::string standingOf(const Facts& facts) {
  const std::string_view mode = firstOf(facts, "mode");
  if (mode.empty()) return "mode unknown";
  std::string text(mode);
  const auto servers = facts.find("servers");
  if (mode == "managed" && servers != facts.end()) text.append(" by ").append(joined(servers->second));
  if (const auto bits = firstOf(facts, "server_key_bits"); !bits.empty())
    text.append(", key ").append(bits).append(" bits");
  return text;
}

/// "1 problem", "2 problems".
std::string counted(std::size_t count, const char* one, const char* several) {
  return std::to_string(count) + " " + (count == 1 ? one : several);
}

/// "; 2 problems, 1 warning: " and the first sentence of the worst; nothing where all is well.
std::string troubleOf(const Report& report) {
  const State worst = verdictOf(report);
  if (worst == State::kOk || report.checks.empty()) return {};
  std::vector<std::string> counts;
  if (const auto n = countOf(report, State::kProblem)) counts.push_back(counted(n, "problem", "problems"));
  if (const auto n = countOf(report, State::kWarning)) counts.push_back(counted(n, "warning", "warnings"));
  if (const auto n = countOf(report, State::kUnknown)) counts.push_back(counted(n, "unknown", "unknown"));
  const auto first = std::find_if(report.checks.begin(), report.checks.end(),
                                  [&](const Check& check) { return check.state == worst; });
  return "; " + joined(counts) + ": " + shortened(first->fact, kLongestFact);
}

}  // namespace

State verdictOf(const Report& report) {
  for (const State state : {State::kProblem, State::kWarning, State::kUnknown}) {
    if (countOf(report, state) != 0) return state;
  }
  return report.checks.empty() ? State::kUnknown : State::kOk;
}

int exitStatusOf(State verdict) {
  switch (verdict) {
    case State::kOk:
      return 0;
    case State::kWarning:
      return 1;
    case State::kProblem:
      return 2;
    case State::kUnknown:
      break;
  }
  return 3;
}

std::string summaryOf(const Report& report) {
  return standingOf(report.facts) + troubleOf(report);
}

}  // namespace kelt::check
