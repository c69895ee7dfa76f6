#include "check/run.h"

#include <array>
#include <climits>
#include <cstdlib>
#include <unistd.h>

#include "check/device.h"
#include "check/options.h"
#include "check/report_json.h"
#include "check/report_text.h"
#include "check/supervisor.h"
#include "check/verdict.h"

#include "base/console.h"

namespace kelt::check {
namespace {

/// "Unknown" to a monitoring system: a wrong option says nothing about the device.
constexpr int kWrongUse = 3;

/// Where it was started; as the shell calls it, where the system does not tell.
std::string workingDirectory() {
  std::array<char, PATH_MAX> path{};
  if (::getcwd(path.data(), path.size()) != nullptr) return path.data();
  const char* fromShell = ::getenv("PWD");  // NOLINT(concurrency-mt-unsafe): there is one thread
  return fromShell == nullptr ? "" : fromShell;
}

/// As the tool does: relative names of programs and directories are meant from there. Where it cannot be entered,
/// directory.bin says so.
void enter(const std::string& binDirectory) {
  if (::chdir(binDirectory.c_str()) != 0) return;
}

void look(const Options& options, Findings& findings) {
  Device device;
  device.startedIn = workingDirectory();
  // Each check finds in `device` what those before it have found out.
  findings.takeFact("keltcheck", KELT_VERSION);
  checkConfiguration(device, findings);
  enter(device.binDirectory);
  checkCommands(device, findings);
  checkDirectories(device, findings);
  checkRoom(device, findings);
  // Before the keys, which are judged by the mode; the lock comes before the traces for the same reason.
  checkMode(device, findings);
  checkKeys(device, findings);
  checkRegistry(findings);
  checkLock(device, findings);
  checkTraces(device, findings);
  // Loaded on trial where the run has loaded the part anyway, or its work is asked about.
  checkInstallation(device.bKeysStored || !options.source.empty() || !options.server.empty(), findings);
  if (!options.source.empty()) checkSource(device, options.source, findings);
  if (!options.server.empty()) checkServer(options.server, findings);
}

/// The report in the format that was asked for, or that suits where it goes.
std::string shown(const Report& report, const Options& options, bool bColours) {
  if (options.format == Format::kJson) return jsonReport(report);
  // NOLINTNEXTLINE(concurrency-mt-unsafe): there is one thread
  const bool bTerminal = options.format == Format::kTerminal && ::isatty(STDOUT_FILENO) == 1;
  return bTerminal ? terminalReport(report, options.bVerbose, bColours) : plainReport(report, options.bVerbose);
}

}  // namespace

int runCheck(int argc, char** argv, bool bColours) {
  const auto options = optionsIn(argc, argv);
  if (!options) {
    base::print(unknownLine("wrong use: " + options.error().message + "; keltcheck --help shows the right one"));
    return kWrongUse;
  }
  if (options.value().bHelp) {
    base::print(helpText());
    return 0;
  }
  if (options.value().bVersion) {
    base::printLine(std::string_view(KELT_VERSION));
    return 0;
  }
  const Report report = supervised({}, [&](Findings& findings) { look(options.value(), findings); });
  base::print(shown(report, options.value(), bColours));
  return exitStatusOf(verdictOf(report));
}

}  // namespace kelt::check
