// What interrupted runs left.

#include <optional>
#include <vector>

#include "check/device.h"
#include "check/look.h"

#include "base/file_place.h"
#include "base/sweep.h"
#include "helper/agent_paths.h"
#include "helper/owed_start.h"
#include "helper/unfinished_work.h"
#include "keys/key_files.h"

namespace kelt::check {
namespace {

namespace paths = helper::paths;
using helper::Owed;

/// Something that an interrupted run leaves, and that a run which is under way has as well.
struct Trace {
  const char* id;
  State state;        ///< where no run is under way
  std::string there;  ///< what is there
  std::string cause;  ///< what that means then, as the end of a sentence
  std::string remedy;
  std::string subject = {};
};

/// Whether it is a trace shows only where no run is under way.
void tell(const Device& device, const Trace& trace, Findings& findings) {
  if (device.bRunUnderWay)
    return findings.unknown(trace.id, trace.there + "; a run is under way, which may need it",
                            "Wait for its end, and look again.", trace.subject);
  findings.put(trace.state, trace.id, trace.there + trace.cause, trace.remedy, trace.subject);
}

/// The key files of one directory that are there, and why others could not be looked for.
struct KeyFilesThere {
  std::string names;
  std::optional<Error> unseen;
};

/// Links count as files: the tool deletes them, too.
KeyFilesThere keyFilesIn(const std::string& directory) {
  KeyFilesThere there;
  const keys::KeyFiles files = keys::keyFilesIn(directory);
  for (const std::string* path : keys::inOrder(files)) {
    const auto info = lookAt(*path, true);
    if (info) {
      there.names.append(there.names.empty() ? "" : ", ").append(path->substr(path->rfind('/') + 1));
    } else if (info.error().kind != ErrorKind::kNotFound) {
      there.unseen = info.error();
    }
  }
  return there;
}

/// `trace` lacks the names of the files, which go after what it says is there.
void checkKeyFiles(const Device& device, const std::string& directory, Trace trace, const char* none,
                   Findings& findings) {
  const KeyFilesThere there = keyFilesIn(directory);
  if (there.names.empty() && there.unseen)
    return findings.failure(State::kWarning, trace.id, *there.unseen, "Put the directory right.");
  if (there.names.empty()) return findings.ok(trace.id, none);
  trace.there += " in " + directory + ": " + there.names;
  tell(device, trace, findings);
}

/// Where runs of the tool make files.
std::vector<std::string> writtenDirectories(const Device& device) {
  std::vector<std::string> all = {paths::kInstallDir, paths::kScratchDir, paths::kScratchEtcDir};
  if (device.bDirectoriesKnown) all.push_back(device.keyStore);
  // Unless the configuration moves it, it is the scratch directory, and its files would be told twice.
  if (device.dataDirectory + "/" != paths::kScratchDir) all.push_back(device.dataDirectory);
  if (!device.agentConfigPath.empty()) all.push_back(base::directoryOf(device.agentConfigPath));
  return all;
}

/// Many crashes leave many files: of each directory they are counted, and one is named.
void tellTemporaryFiles(const Device& device, const std::string& directory, const std::vector<std::string>& found,
                        Findings& findings) {
  const std::string others = found.size() == 1 ? "" : " and " + std::to_string(found.size() - 1) + " more";
  tell(device,
       {"trace.temporary", State::kWarning, "In " + directory + " is the temporary file " + found.front() + others,
        ", left by an interrupted run", "Nothing, the next run that writes there removes it; or delete it.", directory},
       findings);
}

void checkTemporaryFiles(const Device& device, Findings& findings) {
  bool bNone = true;
  for (const std::string& directory : writtenDirectories(device)) {
    const auto found = base::leftoversIn(directory, kAgentUser);
    // Other checks tell that it is missing; nothing can be left in it.
    if (!found && found.error().kind == ErrorKind::kNotFound) continue;
    if (found && found.value().empty()) continue;
    bNone = false;
    if (found)
      tellTemporaryFiles(device, directory, found.value(), findings);
    else
      findings.failure(State::kWarning, "trace.temporary", found.error(), "Put the directory right.", directory);
  }
  if (bNone) findings.ok("trace.temporary", "No temporary files are left");
}

/// For people.
const char* nameOf(helper::Work work) {
  switch (work) {
    case helper::Work::kUnmanagedSwitch:
      return "a switch to unmanaged mode";
    case helper::Work::kKeyImport:
      return "a key import";
    case helper::Work::kTakeBack:
      break;
  }
  return "the way back from a switch to managed mode that failed";
}

/// The mark by which the next run goes on from where an interrupted one was.
void checkUnfinishedWork(const Device& device, Findings& findings) {
  if (!device.bDirectoriesKnown)
    return findings.unknown("trace.unfinished", "Where the mark of unfinished work would be is not known", kLookAsRoot);
  const auto mark = helper::inspectMark(device.dataDirectory, kAgentUser);
  if (!mark && mark.error().kind == ErrorKind::kNotFound)
    return findings.ok("trace.unfinished", "No run has left work unfinished");
  if (!mark)
    return findings.failure(State::kWarning, "trace.unfinished", mark.error(),
                            "Remove it; it counts as no mark of unfinished work.");
  tell(device,
       {"trace.unfinished", State::kWarning, std::string("There is the mark of ") + nameOf(mark.value().work),
        ", which an interrupted run has left unfinished",
        "Repeat that run; the next switch or keltconfig -k finishes the work as well."},
       findings);
}

/// A mark that the agent is owed something; `stopped` is what the run did that made it.
struct Debt {
  Owed what;
  const char* id;
  const char* mark;
  const char* owed;
  const char* stopped;
};

/// The guard of a killed run pays the debt; what is there without a run under way was left without one.
void checkOwed(const Device& device, const Debt& debt, Findings& findings) {
  const auto mark = lookAt(debt.mark);
  if (!mark && mark.error().kind == ErrorKind::kNotFound)
    return findings.ok(debt.id, std::string("No run owes the agent ") + debt.owed);
  if (!mark) return findings.failure(State::kProblem, debt.id, mark.error(), "Put /run right.");
  const pid_t command = helper::runningCommand(debt.what);
  const std::string running = command == 0 ? "" : "; its command has not ended yet, process " + std::to_string(command);
  tell(device,
       {debt.id, State::kProblem, std::string("The mark ") + debt.mark + " is there",
        std::string(": an interrupted run has ") + debt.stopped + " and owes the agent " + debt.owed + running,
        "Start the agent with keltconfig -start."},
       findings);
}

}  // namespace

void checkTraces(const Device& device, Findings& findings) {
  findings.begin("trace.key-files", {});
  checkKeyFiles(
      device, keys::keyDirectory(false),
      {"trace.key-files", State::kWarning, "Key files are", ", left by an import that failed or was interrupted",
       "Repeat the switch to managed mode, which imports and deletes them."},
      "No key files are left in the installation", findings);
  checkKeyFiles(device, keys::keyDirectory(true),
                {"trace.update", State::kWarning, "Key files are", ", of an update, and wait for an import",
                 "Import them with keltconfig -k."},
                "No key files of an update wait for an import", findings);
  checkTemporaryFiles(device, findings);
  checkUnfinishedWork(device, findings);
  checkOwed(device, {Owed::kStart, "trace.stopped", paths::kStartOwed, "its start", "stopped the agent"}, findings);
  checkOwed(device,
            {Owed::kPlugIns, "trace.plug-ins", paths::kPlugInsOwed, "the loading of its plug-ins", "unloaded plug-ins"},
            findings);
}

}  // namespace kelt::check
