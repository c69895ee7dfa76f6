#include "fault/gate/trials.h"

#include <fcntl.h>
#include <new>
#include <optional>
#include <sstream>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

#include "base/unique_fd.h"

namespace kelt::tests::gate {
namespace {

AllocationRecord* mapRecord(const std::string& path) {
  const base::UniqueFd fd(::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
  require(fd.bValid() && ::ftruncate(fd.get(), sizeof(AllocationRecord)) == 0, "make " + path);
  void* const memory = ::mmap(nullptr, sizeof(AllocationRecord), PROT_READ | PROT_WRITE, MAP_SHARED, fd.get(), 0);
  require(memory != MAP_FAILED, "map " + path);
  return new (memory) AllocationRecord;
}

Fault faultOf(const Point& point) {
  switch (point.mode) {
    case Mode::kOn:
      return {point.spot, Action::kFailFromHere, point.error};
    case Mode::kKill:
      return {point.spot, Action::kKill, 0};
    case Mode::kTerminate:
      return {point.spot, Action::kTerminate, 0};
    default:
      return {point.spot, Action::kFail, point.error};
  }
}

bool bKills(Mode mode) {
  return mode == Mode::kKill || mode == Mode::kPair;
}

/// Where the kill met a process that the tool forked, the tool itself goes on to its end.
End endOf(Mode mode, const Outcome& outcome) {
  if (WIFEXITED(outcome.status)) return End::kByItself;
  if (bKills(mode)) return End::kKilled;
  return mode == Mode::kTerminate ? End::kTerminated : End::kByItself;
}

/// Seconds that this process and those that it waited for took of the processor.
double processorTime() {
  double seconds = 0;
  for (const auto who : {RUSAGE_SELF, RUSAGE_CHILDREN}) {
    rusage usage{};
    ::getrusage(who, &usage);
    for (const timeval& part : {usage.ru_utime, usage.ru_stime})
      seconds += static_cast<double>(part.tv_sec) + static_cast<double>(part.tv_usec) / 1e6;
  }
  return seconds;
}

/// Of a process, by what the processes of the run became or would have become.
std::string roleOf(const std::string& process, const std::map<std::string, std::string>& commands) {
  if (process == "0") return "tool";
  const auto command = commands.find(process);
  if (command == commands.end()) return "helper";
  std::istringstream words(command->second);
  std::string verb;
  words >> verb >> verb;
  return verb;
}

void addStates(Command& command, const Tree& tree) {
  for (const auto& [path, entry] : tree) {
    if (command.first.count(path) != 0) command.between[path].push_back(entry);
  }
}

}  // namespace

Trials::Trials(Suite& suite, const ConsoleTexts& texts, Setting setting)
    : m_suite(suite),
      m_texts(texts),
      m_setting(std::move(setting)),
      m_injector(m_setting.seconds),
      m_record(mapRecord(m_setting.record)) {}

Trials::~Trials() {
  ::munmap(m_record, sizeof *m_record);
}

Program Trials::programFor(const std::vector<std::string>& arguments) const {
  std::vector<std::string> words = m_setting.emulator;
  words.push_back(m_setting.tool);
  words.insert(words.end(), arguments.begin(), arguments.end());
  for (std::string& word : words) {
    const std::size_t at = word.find(kPort);
    if (at != std::string::npos) word.replace(at, std::string(kPort).size(), m_setting.port);
  }
  Program program{words.front(), {words.begin() + 1, words.end()}, {"PATH=/usr/sbin:/usr/bin:/sbin:/bin"}, {}};
  // What the tool does first is to make sure of the directory of its lock.
  if (!m_setting.emulator.empty()) program.begin = "/run/orv";
  return program;
}

Program Trials::countedProgram(const Command& command, const Spot* failing) const {
  Program program = programFor(command.arguments);
  program.environment.push_back("LD_PRELOAD=" + m_setting.allocator);
  program.environment.push_back(std::string(kRecordVariable) + "=" + m_setting.record);
  if (failing != nullptr) {
    program.environment.push_back(std::string(kFailVariable) + "=" + failing->process + ":" +
                                  std::to_string(failing->call));
  }
  return program;
}

void Trials::clearRecord() {
  new (m_record) AllocationRecord;
}

std::vector<Spot> Trials::allocationsOf(const Command& command) {
  bringDeviceTo(command.first);
  clearRecord();
  Program program = countedProgram(command, nullptr);
  program.environment.push_back(std::string(kWaysVariable) + "=1");
  (void)m_injector.runFree(program);
  require(m_record->ways < m_record->newWays.size(), "allocations come by too many ways; count them");
  std::vector<Spot> spots;
  for (std::size_t n = 0; n < m_record->ways; ++n) {
    const NewWay& way = m_record->newWays.at(n);
    spots.push_back({m_record->counts.at(way.process).process.data(), -1, way.allocation});
  }
  return spots;
}

Undisturbed Trials::undisturbed(Command& command) {
  for (const auto& arguments : command.variants) {
    bringDeviceTo(command.first);
    (void)m_injector.runFree(programFor(arguments));
    addStates(command, deviceTree());
  }
  Undisturbed result;
  Plan plan;
  plan.bRecord = true;
  bringDeviceTo(command.first);
  Outcome outcome = m_injector.run(programFor(command.arguments), plan);
  result.status = outcome.status;
  result.after = deviceTree();
  result.calls = std::move(outcome.calls);
  result.commands = std::move(outcome.commands);
  result.statusAgain = m_injector.runFree(programFor(command.arguments)).status;
  result.afterAgain = deviceTree();
  // The allocator is not one for the emulated machine.
  if (m_setting.emulator.empty()) result.allocations = allocationsOf(command);
  return result;
}

Violations Trials::judgeUndisturbed(const Command& command, const Undisturbed& undisturbed) {
  bringDeviceTo(command.first);
  const Judge judge(command, undisturbed, m_texts, m_suite.secrets);
  const Outcome outcome = m_injector.runFree(programFor(command.arguments));
  Violations found = judge.afterRun(outcome, End::kByItself, deviceTree());
  if (outcome.status != 0) found.push_back({"unknown-status", "an undisturbed run fails: " + outcome.output});
  if (undisturbed.calls.empty()) found.push_back({"crash", "an undisturbed run makes no system call"});
  return found;
}

Outcome Trials::strike(const Point& point, const Command& command, Violations& exposed, bool bCountAfter) {
  if (point.mode == Mode::kAllocate) {
    clearRecord();
    Outcome outcome = m_injector.runFree(countedProgram(command, &point.spot));
    outcome.bHit = m_record->hits != 0;
    outcome.process = point.spot.process;
    outcome.where = "allocation";
    outcome.refused = {"allocation"};
    return outcome;
  }
  Plan plan;
  plan.faults = {faultOf(point)};
  plan.killAfter = point.mode == Mode::kPair ? point.later : 0;
  plan.bCountAfter = bCountAfter;
  const Watcher watcher = [&](const std::string& path) {
    if (m_suite.secrets.bExposedAt(path)) exposed.push_back({"exposed-secret", "for a moment, " + path});
  };
  return m_injector.run(programFor(command.arguments), plan, watcher);
}

AfterError Trials::runWith(const Point& error) {
  const Command& command = m_suite.commands.at(error.command);
  Violations ignored;  // those of the mode "once"
  bringDeviceTo(command.first);
  AfterError result;
  const Outcome outcome = strike(error, command, ignored, true);
  result.calls = outcome.callsAfter;
  result.commands = outcome.commands;
  result.next.status = m_injector.runFree(programFor(command.arguments)).status;
  result.next.tree = deviceTree();
  return result;
}

const AfterError& Trials::afterError(const Point& point) {
  Point alone = point;
  alone.mode = Mode::kOnce;
  const std::string name = gate::nameOf(alone, m_suite);
  if (!m_afterError || m_afterError->first != name) m_afterError.emplace(name, runWith(alone));
  return m_afterError->second;
}

Trials::Rerun Trials::rerun(const Command& command, const Judge& judge, const Tree& before,
                            const std::optional<Ending>& other) {
  Rerun next;
  next.outcome = m_injector.runFree(programFor(command.arguments));
  next.violations = judge.afterRerun(next.outcome, before, deviceTree(), other);
  return next;
}

const Trials::Rerun& Trials::rerunAfterKill(const Point& point, const Judge& judge, const Tree& before) {
  std::pair<std::size_t, Tree> state(point.command, before);
  if (const auto log = state.second.find(kLog); log != state.second.end()) log->second.content.clear();
  const auto known = m_reruns.find(state);
  if (known != m_reruns.end()) return known->second;
  return m_reruns.emplace(std::move(state), rerun(m_suite.commands.at(point.command), judge, before, {})).first->second;
}

Trial Trials::at(const Point& point, const Undisturbed& undisturbed) {
  const double before = processorTime();
  Trial trial = tried(point, undisturbed);
  trial.processor = processorTime() - before;
  return trial;
}

Trial Trials::tried(const Point& point, const Undisturbed& undisturbed) {
  const Command& command = m_suite.commands.at(point.command);
  const Judge judge(command, undisturbed, m_texts, m_suite.secrets);
  Trial trial;
  const AfterError* const afterErrorAlone = point.mode == Mode::kPair ? &afterError(point) : nullptr;
  bringDeviceTo(command.first);
  trial.outcome = strike(point, command, trial.violations);
  trial.bReached = point.mode == Mode::kPair && point.later != 0 ? trial.outcome.bKilledAfter : trial.outcome.bHit;
  trial.roles.insert(roleOf(trial.outcome.process, undisturbed.commands));
  // Up to the kill the run went the way that it goes with the error alone.
  if (trial.outcome.bKilledAfter) trial.roles.insert(roleOf(trial.outcome.killedProcess, afterErrorAlone->commands));
  const Tree tree = deviceTree();
  const Violations found = judge.afterRun(trial.outcome, endOf(point.mode, trial.outcome), tree);
  trial.violations.insert(trial.violations.end(), found.begin(), found.end());
  if (!bKills(point.mode)) return trial;
  trial.bRerun = true;
  const Rerun next = point.mode == Mode::kPair ? rerun(command, judge, tree, afterErrorAlone->next)
                                               : rerunAfterKill(point, judge, tree);
  trial.rerun = next.outcome;
  trial.violations.insert(trial.violations.end(), next.violations.begin(), next.violations.end());
  return trial;
}

}  // namespace kelt::tests::gate
