// kelt_gate: tries every system call and every allocation of every command. tests/README.md tells how to read it.

#include <algorithm>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <optional>
#include <random>
#include <sstream>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

#include "fault/gate/place.h"
#include "fault/gate/report.h"
#include "fault/gate/server_process.h"
#include "fault/gate/workers.h"
#include "support/private_device.h"
#include "support/private_root.h"

namespace {

using namespace kelt::tests::gate;  // NOLINT(google-build-using-namespace)
namespace fs = std::filesystem;

constexpr const char* kUsage =
    "kelt_gate --binary NAME [--jobs N] [--every N] [--only POINT] [--pairs N] [--seed N] [--log FILE]\n"
    "\n"
    "  --binary NAME the tool to try, which stands beside this program\n"
    "  --jobs N      processes that share the work (2)\n"
    "  --every N     only each N-th point\n"
    "  --only POINT  only the points whose name begins with this, for instance \"unmanaged\" or \"unmanaged:kill\"; "
    "one\n"
    "                whole name, as the log has it, is tried and told in full\n"
    "  --pairs N     instead, N random pairs of an error and a kill while it is dealt with\n"
    "  --seed N      for --pairs (1)\n"
    "  --emulator \"COMMAND ARGUMENT...\"  runs the tool; then only calls that concern files are tried, and no "
    "allocations\n"
    "  --log FILE    a line for each violation\n"
    "  --calls NAME  instead, lists the system calls of an undisturbed run of that command\n";

struct Options {
  std::string binary, emulator, only, log, calls;
  unsigned jobs = 2;
  std::size_t every = 1, pairs = 0;
  unsigned long seed = 1;
};

[[noreturn]] void refuse() {
  std::cerr << kUsage;
  std::exit(2);
}

Options optionsIn(int argc, char** argv) {
  Options options;
  for (int n = 1; n + 1 < argc; n += 2) {
    const std::string name = argv[n];
    const std::string value = argv[n + 1];
    const auto number = [&] { return std::max(1UL, std::strtoul(value.c_str(), nullptr, 10)); };
    if (name == "--binary")
      options.binary = fs::path(value).filename();
    else if (name == "--only")
      options.only = value;
    else if (name == "--calls")
      options.calls = value;
    else if (name == "--emulator")
      options.emulator = value;
    else if (name == "--log")
      options.log = value;
    else if (name == "--jobs")
      options.jobs = static_cast<unsigned>(number());
    else if (name == "--every")
      options.every = number();
    else if (name == "--pairs")
      options.pairs = number();
    else if (name == "--seed")
      options.seed = number();
    else
      refuse();
  }
  if (argc % 2 == 0 || options.binary.empty()) refuse();
  return options;
}

struct Files {
  std::string documents, exceptions;
};

/// Where the device, in which this program is started anew, has what only the machine has: below descriptors that stay
/// open.
constexpr const char* kSources = "KELT_GATE_SOURCES";
constexpr const char* kLog = "KELT_GATE_LOG";

void keep(const char* variable, const std::string& path, int flags) {
  const int fd = ::open(path.c_str(), flags, 0644);
  if (fd < 0) throw std::runtime_error(path + " cannot be opened");
  ::setenv(variable, ("/proc/self/fd/" + std::to_string(fd)).c_str(), 1);
}

std::string keptAt(const char* variable) {
  const char* path = std::getenv(variable);
  return path == nullptr ? "/dev/null" : path;
}

/// Opens what the device hides. The tool has to stand beside this program, as the device has that directory alone.
void prepare(int argc, char** argv) {
  const Options options = optionsIn(argc, argv);
  if (!fs::exists(fs::read_symlink("/proc/self/exe").parent_path() / options.binary)) refuse();
  keep(kSources, KELT_SOURCE_DIR, O_PATH | O_DIRECTORY);
  if (!options.log.empty()) keep(kLog, options.log, O_WRONLY | O_CREAT | O_TRUNC);
}

Files readSources() {
  const std::string sources = keptAt(kSources);
  return {readFile(sources + "/docs/console.md"), readFile(sources + "/tests/fault/exceptions.txt")};
}

Setting serverSetting(const Options& options, const std::string& port, const std::string& name) {
  Setting setting = settingFor(std::string(kelt::tests::kPrivateBuild) + "/" + options.binary, name);
  setting.port = port;
  std::istringstream words(options.emulator);
  for (std::string word; words >> word;)
    setting.emulator.push_back(word);
  return setting;
}

struct Plans {
  Suite suite;
  std::vector<Undisturbed> undisturbed;
  std::vector<Point> points;
};

/// Runs everything without faults; false, with a message, where that is not as it should be.
bool plan(Plans& plans, Trials& trials) {
  bool bSound = true;
  for (Command& command : plans.suite.commands) {
    plans.undisturbed.push_back(trials.undisturbed(command));
    for (const Violation& violation : trials.judgeUndisturbed(command, plans.undisturbed.back())) {
      std::cout << "UNDISTURBED " << command.name << ": " << violation.kind << " " << violation.detail << '\n';
      bSound = false;
    }
  }
  return bSound;
}

void addPoints(Plans& plans, const Options& options) {
  std::size_t turn = 0;
  for (std::size_t command = 0; command < plans.suite.commands.size(); ++command) {
    for (const Mode mode : kModes) {
      for (const Point& point : pointsOf(command, plans.undisturbed[command], mode)) {
        if (!nameOf(point, plans.suite).starts_with(options.only)) continue;
        if (turn++ % options.every == 0) plans.points.push_back(point);
      }
    }
  }
}

/// Random errors; how many calls follow each is found out by the worker.
void addPairs(Plans& plans, const Options& options) {
  std::vector<Point> errors;
  for (std::size_t command = 0; command < plans.suite.commands.size(); ++command) {
    const std::vector<Point> points = pointsOf(command, plans.undisturbed[command], Mode::kPair);
    errors.insert(errors.end(), points.begin(), points.end());
  }
  std::mt19937_64 random(options.seed);
  for (std::size_t n = 0; n < options.pairs; ++n) {
    plans.points.push_back(errors.at(random() % errors.size()));
    plans.points.back().later = random();  // settled by settlePair
  }
}

/// Puts the kill at one of the calls that follow the error. Chosen in proportion, so that it needs no state.
void settlePair(Point& point, Trials& trials) {
  const std::size_t calls = trials.afterError(point).calls;
  point.later = calls == 0 ? 1 : point.later % calls + 1;
}

Work workOf(const Options& options, Plans& plans, const ConsoleTexts& texts, const std::string& port, unsigned worker) {
  separateDevice();
  auto trials = std::make_shared<Trials>(plans.suite, texts, serverSetting(options, port, std::to_string(worker)));
  return [&plans, trials](std::size_t index) {
    Point point = plans.points.at(index);
    const Undisturbed& undisturbed = plans.undisturbed.at(point.command);
    if (point.mode == Mode::kPair) settlePair(point, *trials);
    return linesOf(trials->at(point, undisturbed), point, plans.suite);
  };
}

void tell(const char* run, const kelt::tests::Outcome& outcome) {
  std::cout << run << (WIFEXITED(outcome.status) ? ": status " : ": signal ")
            << (WIFEXITED(outcome.status) ? WEXITSTATUS(outcome.status) : WTERMSIG(outcome.status)) << '\n'
            << outcome.output << outcome.errors;
}

int tryOne(const Point& point, Plans& plans, Trials& trials) {
  const Trial trial = trials.at(point, plans.undisturbed.at(point.command));
  std::cout << nameOf(point, plans.suite) << ": " << (trial.bReached ? faultsIn(trial.outcome) : "not reached") << '\n';
  tell("the run", trial.outcome);
  if (trial.bRerun) tell("the next run", trial.rerun);
  for (const std::string& path : differences(deviceTree(), plans.undisturbed[point.command].after))
    std::cout << "differs from an undisturbed run: " << path << '\n';
  for (const Violation& violation : trial.violations)
    std::cout << "VIOLATED " << violation.kind << "  " << violation.detail << '\n';
  return trial.violations.empty() ? 0 : 1;
}

int listCalls(const std::string& name, const Plans& plans) {
  for (std::size_t n = 0; n < plans.suite.commands.size(); ++n) {
    if (plans.suite.commands[n].name != name) continue;
    for (const auto& call : plans.undisturbed[n].calls)
      std::cout << nameOf(call.spot) << '\n';
    return 0;
  }
  return 2;
}

int conclude(const Report& report, bool bComplete, std::chrono::steady_clock::time_point begin) {
  report.print(std::cout, bComplete);
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
  const bool bPassed = report.bPassed(bComplete);
  std::cout << report.tried() << (bPassed ? " passed, " : " tried, ") << report.excused() << " violations excused in "
            << std::chrono::duration_cast<std::chrono::seconds>(took).count() << " s, "
            << static_cast<long>(report.processorSeconds()) << " s of the processor\n";
  return bPassed ? 0 : 1;
}

int run(const Options& options) {
  const auto begin = std::chrono::steady_clock::now();
  std::ofstream log(keptAt(kLog));
  const Files files = readSources();
  bringPrograms();

  Plans plans;
  plans.suite = keltconfigSuite(keptAt(kSources), kAgentProgram);
  std::vector<ServerProcess> servers;
  for (unsigned n = 0; n < options.jobs; ++n)
    servers.push_back(startServer(plans.suite.reply));
  const ConsoleTexts texts(files.documents);
  Trials trials(plans.suite, texts, serverSetting(options, servers[0].port, "first"));
  if (!plan(plans, trials)) return 1;

  if (!options.calls.empty()) return listCalls(options.calls, plans);
  if (const auto point = pointNamed(options.only, plans.suite)) return tryOne(*point, plans, trials);
  options.pairs != 0 ? addPairs(plans, options) : addPoints(plans, options);
  Report report{Exceptions(files.exceptions)};
  const auto lines = share(plans.points.size(), options.jobs, [&](unsigned worker) {
    return workOf(options, plans, texts, servers[worker].port, worker);
  });
  for (const std::string& line : lines)
    report.add(line, log);
  return conclude(report, options.only.empty() && options.emulator.empty() && options.every == 1 && options.pairs == 0,
                  begin);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    if (!kelt::tests::bOnPrivateRoot()) prepare(argc, argv);
    kelt::tests::enterPrivateDevice(argv);  // returns in the device only
    return run(optionsIn(argc, argv));
  } catch (const std::exception& error) {
    std::cerr << "kelt_gate: " << error.what() << '\n';
    return 2;
  }
}
