#pragma once
// The commands that the gate tries: how the device stands before each, and what it may come to.

#include <map>
#include <set>
#include <string>
#include <vector>

#include "fault/gate/secrets.h"
#include "fault/gate/tree.h"
#include "support/injector/injector.h"

namespace kelt::tests::gate {

/// What becomes of the agent.
enum class Agent {
  kRunsOn,     ///< stopped meanwhile perhaps, it runs in the end
  kIsStarted,  ///< runs in the end where the status is 0
  kIsStopped,  ///< does not run in the end where the status is 0
  kUntouched,  ///< none of its commands is run
};

/// Where things stand on the trial's device.
inline constexpr const char* kAgentDirectory = "/run/agent";
inline constexpr const char* kAgentRuns = "/run/agent/running";
inline constexpr const char* kAgentCalls = "/run/agent/calls";
inline constexpr const char* kLog = "/opt/Quorvane/orv/scratch/logs/keltcfg.log";

struct Command {
  std::string name;
  std::vector<std::string> arguments;
  Tree first;  ///< the device before
  Agent agent = Agent::kUntouched;
  std::string source;        ///< the directory of -d; empty without
  bool bProvisions = false;  ///< what is in it comes from the server
  /// Further whole states that a file may be in when a run did not come to its end.
  std::map<std::string, std::vector<Entry>> between;
  std::set<std::string> mayBeAbsent;  ///< files that are deleted before they are made anew
  /// Argument lists that leave further such states; tried once, without faults.
  std::vector<std::vector<std::string>> variants;
};

/// What the tool does when nothing disturbs it.
struct Undisturbed {
  int status = 0;
  Tree after;
  int statusAgain = 0;  ///< of the same command a second time
  Tree afterAgain;
  std::vector<RecordedCall> calls;
  std::map<std::string, std::string> commands;  ///< the processes that become another program, as in Outcome
  std::vector<Spot> allocations;  ///< one for each way through the program that leads to an allocation: the first
};

struct Suite {
  std::vector<Command> commands;
  Secrets secrets;
  std::string reply;  ///< of the management server
};

/// The word in arguments that stands for the server's port.
inline constexpr const char* kPort = "{port}";

/// The commands of keltconfig. `sources` is the top of the source tree, `agent` the path of the stand-in agent's
/// program.
[[nodiscard]] Suite keltconfigSuite(const std::string& sources, const std::string& agent);

/// A device with a running agent, as keltconfigSuite uses it.
[[nodiscard]] Tree deviceWithAgent(const std::string& sources, const std::string& agent, bool bRunning);

}  // namespace kelt::tests::gate
