#pragma once
// What a run of the gate came to: counts for people, and one record per violation.

#include <iosfwd>
#include <map>
#include <string>
#include <vector>

#include "fault/gate/exceptions.h"
#include "fault/gate/point.h"
#include "fault/gate/trials.h"

namespace kelt::tests::gate {

/// The calls that met the faults of a run, each with its process: "openat EIO in 0, then close SIGKILL in 0.2".
[[nodiscard]] std::string faultsIn(const Outcome& outcome);

/// A trial as lines for Report::add: one for the point, one for each violation.
[[nodiscard]] std::string linesOf(const Trial& trial, const Point& point, const Suite& suite);

class Report {
 public:
  explicit Report(Exceptions exceptions) : m_exceptions(std::move(exceptions)) {}

  /// Takes a line of linesOf, counts it, and writes a violation to `log`, with the exception that excuses it if one
  /// does.
  void add(const std::string& line, std::ostream& log);

  /// The counts, and the first violations. `bComplete` says that every point was tried, so that each exception must
  /// have matched.
  void print(std::ostream& out, bool bComplete) const;

  /// Whether nothing was found that is not excused, and, where `bComplete`, no exception is left over that is for one
  /// of the modes tried.
  [[nodiscard]] bool bPassed(bool bComplete) const;

  [[nodiscard]] std::size_t tried() const { return m_tried; }
  [[nodiscard]] std::size_t excused() const;
  [[nodiscard]] double processorSeconds() const;

 private:
  void addPoint(const std::vector<std::string>& fields);
  void addViolation(const std::vector<std::string>& fields, std::ostream& log);
  void printPoints(std::ostream& out) const;
  void printProcessorTime(std::ostream& out) const;
  void printViolations(std::ostream& out) const;
  void printExceptions(std::ostream& out, bool bComplete) const;
  [[nodiscard]] bool bLeftOver(const Exception& exception) const;

  Exceptions m_exceptions;
  std::size_t m_tried = 0;
  std::size_t m_notReached = 0;
  std::map<std::string, std::map<std::string, std::size_t>> m_points;      // command, mode
  std::map<std::string, std::map<std::string, double>> m_processor;        // the same, in seconds
  std::map<std::string, std::map<std::string, std::size_t>> m_violations;  // kind, mode; those that are not excused
  std::vector<std::string> m_firstViolations;  // as lines of the log; those that are not excused
  std::map<std::string, std::size_t> m_excusedKinds;
};

}  // namespace kelt::tests::gate
