#include "check/report_text.h"

#include <algorithm>
#include <string_view>

#include "check/readable.h"
#include "check/verdict.h"

namespace kelt::check {
namespace {

struct Title {
  std::string_view group;
  std::string_view text;
};

// A group that is missing here shows by its own name.
constexpr Title kTitles[] = {
    {"config", "Configuration"},
    {"command", "Commands of the agent"},
    {"directory", "Directories"},
    {"room", "Room"},
    {"mode", "Mode"},
    {"key", "Keys"},
    {"trace", "Traces of interrupted runs"},
    {"install", "Installation"},
    {"source", "Rehearsal of the switch"},
    {"server", "Management server"},
    {"run", "This run"},
};

/// The heading of a group.
std::string_view titleOf(std::string_view group) {
  for (const Title& title : kTitles) {
    if (title.group == group) return title.text;
  }
  return group;
}

/// Of our own names only, which are lower-case letters.
std::string upper(const char* name) {
  std::string text(name);
  for (char& c : text)
    c = static_cast<char>(c - 'a' + 'A');
  return text;
}

/// The line that monitoring systems show. They take what follows a "|" for measured values.
std::string firstLine(State verdict, const std::string& summary) {
  std::string line = "KELTCHECK " + upper(nameOf(verdict)) + " - " + readable(summary);
  std::replace(line.begin(), line.end(), '|', '/');
  return line;
}

/// The identifier with, in parentheses, what it is about.
std::string nameOf(const Check& check) {
  return check.subject.empty() ? check.id : check.id + " (" + readable(check.subject) + ")";
}

/// Of one width, in ASCII: a serial console may know no more.
const char* symbolOf(State state) {
  switch (state) {
    case State::kOk:
      return "[ok]";
    case State::kWarning:
      return "[! ]";
    case State::kProblem:
      return "[XX]";
    case State::kUnknown:
      break;
  }
  return "[? ]";
}

/// As terminals have them since ever: green, yellow, red, and cyan for what is not known.
const char* colourOf(State state) {
  switch (state) {
    case State::kOk:
      return "\x1B[32m";
    case State::kWarning:
      return "\x1B[33m";
    case State::kProblem:
      return "\x1B[1;31m";
    case State::kUnknown:
      break;
  }
  return "\x1B[36m";
}

/// The text with its colour around it, where colours are wanted.
std::string coloured(const std::string& text, State state, bool bColours) {
  return bColours ? colourOf(state) + text + "\x1B[0m" : text;
}

}  // namespace

std::string plainReport(const Report& report, bool bVerbose) {
  std::string text = firstLine(verdictOf(report), summaryOf(report)) + "\n";
  for (const Check& check : report.checks) {
    if (check.state == State::kOk && !bVerbose) continue;
    text.append(nameOf(check.state)).append(" ").append(nameOf(check)).append(": ").append(readable(check.fact));
    if (!check.remedy.empty()) text.append(" Remedy: ").append(readable(check.remedy));
    text += '\n';
  }
  return text;
}

std::string terminalReport(const Report& report, bool bVerbose, bool bColours) {
  const State verdict = verdictOf(report);
  std::string text = coloured(firstLine(verdict, summaryOf(report)), verdict, bColours) + "\n";
  std::string_view group;
  for (const Check& check : report.checks) {
    if (check.state == State::kOk && !bVerbose) continue;
    // Checks come in the order of their groups, so a heading comes once.
    if (groupOf(check.id) != group) {
      group = groupOf(check.id);
      text.append("\n").append(titleOf(group)).append("\n");
    }
    text.append("  ").append(coloured(symbolOf(check.state), check.state, bColours));
    text.append(" ").append(nameOf(check)).append(": ").append(readable(check.fact)).append("\n");
    if (!check.remedy.empty()) text.append("       -> ").append(readable(check.remedy)).append("\n");
  }
  return text;
}

std::string unknownLine(const std::string& why) {
  return firstLine(State::kUnknown, why) + "\n";
}

}  // namespace kelt::check
