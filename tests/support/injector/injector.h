#pragma once
// Runs a program and lets one of its system calls fail, or kills the program before it.
//
// The program is the unchanged binary, followed with ptrace; a seccomp filter stops it once before each system call
// that matters to the plan. Calls are counted from the first instruction of main on: what the dynamic loader and the
// initialisers of static objects do before that is not counted, what the loader does when the program loads something
// later is. A process that the program forks counts too, by itself, until it becomes another program: that one runs on
// unwatched. The n-th fork of process P is process "P.n"; the program itself is process "0". x86-64 only.

#include <cstddef>
#include <functional>
#include <linux/filter.h>
#include <map>
#include <set>
#include <string>
#include <sys/types.h>
#include <vector>

#include "support/injector/system_calls.h"

namespace kelt::tests {

/// A system call of a run: the `call`-th (from 1) of that number that the process makes. Counted by number, as two runs
/// differ in how often the heap grows and how replies of a server come in pieces, and hardly in anything else.
struct Spot {
  std::string process = "0";
  long number = -1;
  std::size_t call = 0;
  bool operator==(const Spot&) const = default;
};

enum class Action {
  kFail,          ///< the call fails; it is not executed (a close is, as in earnest)
  kFailFromHere,  ///< so does every later call of any process that wants the same
  kKill,          ///< SIGKILL to the process instead of the call
  kTerminate,     ///< SIGTERM to the process before the call
};

struct Fault {
  Spot at;
  Action action = Action::kFail;
  int error = 0;  ///< errno, for the first two actions
};

/// What is to happen in a run; nothing, as it stands.
struct Plan {
  std::vector<Fault> faults;
  std::size_t killAfter = 0;  ///< not 0: SIGKILL to whichever process makes the n-th call after the first fault
  bool bRecord = false;       ///< fill Outcome::calls
  bool bCountAfter = false;   ///< fill Outcome::callsAfter
};

struct Program {
  std::string path;
  std::vector<std::string> arguments;    ///< without the program's name
  std::vector<std::string> environment;  ///< "NAME=value"
  /// Not empty for a program that an emulator runs, which makes calls of its own: then only calls that concern files
  /// are counted, from the first on that makes something at a path that begins with this.
  std::string begin;
};

struct RecordedCall {
  Spot spot;
  std::vector<CallError> errors;  ///< that it could have given
};

struct Outcome {
  int status = 0;             ///< of the program, as waitpid gives it
  bool bHung = false;         ///< it was killed when its time was over
  bool bLeft = false;         ///< processes of it were, long after its own end
  std::vector<int> crashes;   ///< signals, not ours, that ended processes that it forked
  std::string output;         ///< what it wrote to standard output
  std::string errors;         ///< and to standard error
  bool bHit = false;          ///< the first fault happened
  bool bKilledAfter = false;  ///< so did the kill after it
  std::string where;          ///< the call of the first fault, with its path
  std::string process;        ///< the process of the first fault
  std::string killedWhere;    ///< the call before which the kill after it came, as `where`
  std::string killedProcess;  ///< and the process that it met
  /// The processes that became another program, each with the words of that, a blank after each.
  std::map<std::string, std::string> commands;
  std::set<std::string> refused;  ///< names of all calls that failed by a fault
  std::size_t callsAfter = 0;     ///< calls counted after the first fault, where that was asked for
  std::vector<RecordedCall> calls;
};

/// Called for what a call has made visible (see madeVisible), while the process that made it stands right after the
/// call.
using Watcher = std::function<void(const std::string& path)>;

/// What a run may use of the processor beyond its time, where the machine is busy.
inline constexpr int kProcessorSeconds = 2;

/// Runs programs, one after the other. There may be no other children of this process meanwhile. Whatever a run starts
/// has ended when it returns, or is killed after the time limit.
class Injector {
 public:
  explicit Injector(int secondsPerRun = 20);
  Injector(const Injector&) = delete;
  Injector& operator=(const Injector&) = delete;
  ~Injector();

  /// A run with faults. Ends the program with a message where the system does not let processes be followed.
  [[nodiscard]] Outcome run(const Program& program, const Plan& plan, const Watcher& watcher = {});

  /// A run that nobody follows. Of the outcome, status, output, errors, bHung and bLeft are filled.
  [[nodiscard]] Outcome runFree(const Program& program);

 private:
  pid_t start(const Program& program, const std::vector<sock_filter>* filter);
  void collect(Outcome& outcome);

  int m_output;
  int m_errors;
  int m_seconds;
};

}  // namespace kelt::tests
