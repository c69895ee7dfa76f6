#pragma once
// A report for people, and for the monitoring systems that show its first line.

#include <string>

#include "check/check.h"

namespace kelt::check {

/// The report as lines: first "KELTCHECK OK - " (or WARNING, PROBLEM, UNKNOWN) and the summary, without a "|", which
/// monitoring systems take for the end of the text; then a line for each finding, of those that are ok only with
/// `bVerbose`, with state, identifier, fact and remedy.
/// Texts of the device are shown as readable() gives them, so that none can forge a line.
[[nodiscard]] std::string plainReport(const Report& report, bool bVerbose);

/// The same for a terminal: grouped, with symbols, and with colours where `bColours`.
[[nodiscard]] std::string terminalReport(const Report& report, bool bVerbose, bool bColours);

/// The first line of a plain report for a run that had no report.
[[nodiscard]] std::string unknownLine(const std::string& why);

}  // namespace kelt::check
