#include "fault/gate/report.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <iomanip>
#include <ostream>
#include <sstream>
#include <sys/wait.h>

namespace kelt::tests::gate {
namespace {

// Fields of a record; the first says of what.
constexpr const char* kPoint = "point";
constexpr const char* kViolation = "violation";

/// Of the violations, so many are printed, for a reader who has no log; the first ones tell most.
constexpr std::size_t kShown = 20;

/// Without what would end a field or a line.
std::string escaped(const std::string& text) {
  std::string safe;
  for (const char c : text) {
    if (c == '\n') {
      safe += "\\n";
    } else if (std::iscntrl(static_cast<unsigned char>(c)) != 0) {
      safe += ' ';
    } else {
      safe += c;
    }
  }
  return safe;
}

std::string joined(const std::set<std::string>& words) {
  std::string text;
  for (const std::string& word : words)
    text += (text.empty() ? "" : ",") + word;
  return text;
}

std::set<std::string> separated(const std::string& text) {
  std::set<std::string> words;
  std::istringstream stream(text);
  for (std::string word; std::getline(stream, word, ',');)
    words.insert(word);
  return words;
}

std::vector<std::string> fieldsOf(const std::string& line) {
  std::vector<std::string> fields;
  std::istringstream stream(line);
  for (std::string field; std::getline(stream, field, '\t');)
    fields.push_back(field);
  return fields;
}

std::string endOf(const Outcome& outcome) {
  if (WIFSIGNALED(outcome.status)) return "signal " + std::to_string(WTERMSIG(outcome.status));
  return "status " + std::to_string(WEXITSTATUS(outcome.status));
}

constexpr std::array kColumns = {Mode::kOnce, Mode::kOn, Mode::kKill, Mode::kTerminate, Mode::kAllocate, Mode::kPair};

/// A figure for each command and mode, with sums.
template <typename Figure>
void printTable(std::ostream& out, const char* title, int decimals,
                const std::map<std::string, std::map<std::string, Figure>>& figures) {
  out << std::fixed << std::setprecision(decimals);
  const auto row = [&](const std::string& name, const auto& cell) {
    out << std::left << std::setw(22) << name << std::right;
    for (const Mode mode : kColumns)
      out << std::setw(8) << cell(nameOf(mode));
    out << '\n';
  };
  row(title, [](const std::string& mode) { return mode; });
  std::map<std::string, Figure> sums;
  for (const auto& [command, all] : figures) {
    row(command, [&all = all](const std::string& mode) { return all.count(mode) == 0 ? Figure{} : all.at(mode); });
    for (const auto& [mode, figure] : all)
      sums[mode] += figure;
  }
  row("all", [&](const std::string& mode) { return sums[mode]; });
}

}  // namespace

std::string faultsIn(const Outcome& outcome) {
  const auto met = [](const std::string& where, const std::string& process) { return where + " in " + process; };
  std::string faults = met(outcome.where, outcome.process);
  if (outcome.bKilledAfter) faults += ", then " + met(outcome.killedWhere, outcome.killedProcess);
  return faults;
}

std::string linesOf(const Trial& trial, const Point& point, const Suite& suite) {
  const std::string name = nameOf(point, suite);
  const std::string head = suite.commands.at(point.command).name + "\t" + nameOf(point.mode) + "\t";
  std::string lines =
      std::string(kPoint) + "\t" + head + (trial.bReached ? "1" : "0") + "\t" + std::to_string(trial.processor) + "\n";
  for (const Violation& violation : trial.violations) {
    lines += std::string(kViolation) + "\t" + head + name + "\t" + joined(trial.roles) + "\t" +
             joined(trial.outcome.refused) + "\t" + violation.kind + "\t" + escaped(violation.detail) + "\t" +
             escaped(faultsIn(trial.outcome)) + "\t" + endOf(trial.outcome) + "\t" +
             escaped(trial.outcome.output + trial.outcome.errors) + "\n";
  }
  return lines;
}

void Report::add(const std::string& line, std::ostream& log) {
  std::vector<std::string> fields = fieldsOf(line);
  constexpr std::size_t kMost = 11;
  fields.resize(kMost);
  if (fields[0] == kPoint) addPoint(fields);
  if (fields[0] == kViolation) addViolation(fields, log);
}

void Report::addPoint(const std::vector<std::string>& fields) {
  ++m_tried;
  ++m_points[fields[1]][fields[2]];
  if (fields[3] != "1") ++m_notReached;
  m_processor[fields[1]][fields[2]] += std::strtod(fields[4].c_str(), nullptr);
}

void Report::addViolation(const std::vector<std::string>& fields, std::ostream& log) {
  const Case found{fields[6], fields[1], fields[2], separated(fields[4]), separated(fields[5]), fields[7]};
  const bool bExcused = m_exceptions.excuse(found);
  if (bExcused) {
    ++m_excusedKinds[found.kind];
  } else {
    ++m_violations[found.kind][found.mode];
  }
  const std::string text = found.kind + "  " + fields[3] + "  [" + fields[8] + ", " + fields[4] + "]  " + fields[7] +
                           "  " + fields[9] + "  \"" + fields[10] + "\"\n";
  log << (bExcused ? "excused " : "") << text;
  if (!bExcused && m_firstViolations.size() < kShown) m_firstViolations.push_back(text);
}

std::size_t Report::excused() const {
  std::size_t count = 0;
  for (const auto& [kind, number] : m_excusedKinds)
    count += number;
  return count;
}

double Report::processorSeconds() const {
  double sum = 0;
  for (const auto& [command, times] : m_processor) {
    for (const auto& [mode, seconds] : times)
      sum += seconds;
  }
  return sum;
}

/// Whether it has excused nothing, though something was tried that it is for, in which it always shows.
bool Report::bLeftOver(const Exception& exception) const {
  if (exception.bSometimes) return false;
  const std::vector<std::string>& modes = exception.modes;
  const bool bTried = modes.empty() || std::any_of(modes.begin(), modes.end(), [&](const std::string& mode) {
                        return std::any_of(m_points.begin(), m_points.end(),
                                           [&](const auto& command) { return command.second.count(mode) != 0; });
                      });
  return exception.matches == 0 && bTried;
}

bool Report::bPassed(bool bComplete) const {
  const auto& all = m_exceptions.all();
  const auto leftOver = [&](const Exception& exception) { return bLeftOver(exception); };
  return m_tried != 0 && m_violations.empty() && !(bComplete && std::any_of(all.begin(), all.end(), leftOver));
}

void Report::print(std::ostream& out, bool bComplete) const {
  printPoints(out);
  printProcessorTime(out);
  printViolations(out);
  printExceptions(out, bComplete);
}

void Report::printPoints(std::ostream& out) const {
  printTable(out, "points", 0, m_points);
  if (m_notReached != 0) out << m_notReached << " of them were not reached: the run went another way than the first\n";
}

void Report::printProcessorTime(std::ostream& out) const {
  printTable(out, "processor seconds", 1, m_processor);
}

void Report::printViolations(std::ostream& out) const {
  for (const auto& [kind, modes] : m_violations) {
    std::size_t sum = 0;
    for (const auto& [mode, count] : modes)
      sum += count;
    out << "VIOLATED " << std::left << std::setw(26) << kind << std::right << std::setw(7) << sum << "  (";
    const char* separator = "";
    for (const auto& [mode, count] : modes) {
      out << separator << mode << ' ' << count;
      separator = ", ";
    }
    out << ")\n";
  }
  for (const std::string& text : m_firstViolations)
    out << "  " << text;
}

void Report::printExceptions(std::ostream& out, bool bComplete) const {
  for (const Exception& exception : m_exceptions.all()) {
    if (exception.matches == 0 && !(bComplete && bLeftOver(exception))) continue;
    out << (exception.matches == 0 ? "NOTHING TO EXCUSE " : "excused  ") << std::left << std::setw(26) << exception.name
        << std::right << std::setw(7) << exception.matches << "  " << exception.reason << '\n';
  }
}

}  // namespace kelt::tests::gate
