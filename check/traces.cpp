// What interrupted runs left.

#include <cerrno>
#include <dirent.h>
#include <memory>
#include <unistd.h>
#include <vector>

#include "check/device.h"
#include "check/look.h"

#include "base/file_place.h"
#include "base/temporary_file.h"
#include "helper/agent_paths.h"
#include "helper/owed_start.h"
#include "helper/unfinished_work.h"
#include "keys/key_files.h"

namespace kelt::check {
namespace {

namespace paths = helper::paths;
using helper::Owed;

struct CloseDirectory {
  void operator()(DIR* stream) const { ::closedir(stream); }
};

/// The key files in `directory` that are there.
std::string keyFilesIn(bool fromUpdateDir) {
  const keys::KeyFiles files = keys::keyFilesIn(keys::keyDirectory(fromUpdateDir));
  std::string names;
  for (const std::string* path : keys::inOrder(files)) {
    if (lookAt(*path, true)) names.append(names.empty() ? "" : ", ").append(path->substr(path->rfind('/') + 1));
  }
  return names;
}

void checkKeyFiles(Findings& findings) {
  const std::string installed = keyFilesIn(false);
  const std::string directory = keys::keyDirectory(false);
  if (installed.empty()) {
    findings.ok("trace.key-files", "No key files are left in " + directory);
  } else {
    findings.warning("trace.key-files",
                     "An import that failed or was interrupted has left key files in " + directory + ": " + installed,
                     "Repeat the switch to managed mode, which imports and deletes them.");
  }
  const std::string update = keyFilesIn(true);
  if (update.empty()) return findings.ok("trace.update", "No key files of an update wait for an import");
  findings.warning("trace.update", "Key files of an update wait for an import: " + update,
                   "Import them with keltconfig -k.");
}

/// Returns false where the directory cannot be read.
bool bAddTemporaryFiles(const std::string& directory, std::vector<std::string>& found) {
  const std::unique_ptr<DIR, CloseDirectory> stream(::opendir(directory.c_str()));
  if (stream == nullptr) return errno == ENOENT || errno == ENOTDIR;
  // NOLINTNEXTLINE(concurrency-mt-unsafe): the stream is this function's own
  while (const dirent* entry = ::readdir(stream.get())) {
    const std::string name = &entry->d_name[0];
    if (!base::bTemporaryName(name)) continue;
    std::string& path = found.emplace_back(directory);
    path.append(directory.ends_with('/') ? "" : "/").append(name);
  }
  return true;
}

void checkTemporaryFiles(const Device& device, Findings& findings) {
  std::vector<std::string> directories = {std::string(paths::kInstallDir), std::string(paths::kScratchDir),
                                          std::string(paths::kScratchEtcDir), device.keyStore};
  if (device.dataDirectory + "/" != std::string(paths::kScratchDir)) directories.push_back(device.dataDirectory);
  if (!device.agentConfigPath.empty()) directories.push_back(base::directoryOf(device.agentConfigPath));
  std::vector<std::string> found;
  bool bAll = true;
  for (const std::string& directory : directories)
    bAll = bAddTemporaryFiles(directory, found) && bAll;
  for (const std::string& path : found)
    findings.warning("trace.temporary", "An interrupted run has left " + path,
                     "Nothing, the next run that writes removes it; or delete it.", path);
  if (!found.empty()) return;
  if (bAll) return findings.ok("trace.temporary", "No temporary files are left");
  findings.unknown("trace.temporary", "Not all directories can be searched for temporary files", kLookAsRoot);
}

void checkUnfinishedWork(const Device& device, Findings& findings) {
  const auto mark = helper::inspectMark(device.dataDirectory, kAgentUser);
  if (!mark && mark.error().kind == ErrorKind::kNotFound)
    return findings.ok("trace.unfinished", "No run has left work unfinished");
  if (!mark)
    return findings.failure(State::kWarning, "trace.unfinished", mark.error(),
                            "Remove it; it counts as no mark of unfinished work.");
  const bool bImport = mark.value().work == helper::Work::kKeyImport;
  findings.warning("trace.unfinished",
                   std::string("An interrupted run has left ") +
                       (bImport ? "a key import" : "a switch to unmanaged mode") + " unfinished",
                   "Repeat that run; the next switch or keltconfig -k finishes the work as well.");
}

void checkOwed(Owed what, const char* id, const char* owed, const char* mark, Findings& findings) {
  if (!helper::bOwed(what)) return findings.ok(id, std::string("No run owes the agent ") + owed);
  findings.problem(id, std::string("A run has stopped the agent and still owes it ") + owed + ": " + mark + " is there",
                   "Where no run of keltconfig is under way, start the agent with keltconfig -start.");
}

}  // namespace

void checkTraces(const Device& device, Findings& findings) {
  findings.begin("trace.key-files", {});
  checkKeyFiles(findings);
  checkTemporaryFiles(device, findings);
  checkUnfinishedWork(device, findings);
  const auto locks = lookAt(base::directoryOf(paths::kStartOwed));
  if (!locks && locks.error().kind != ErrorKind::kNotFound)
    return findings.failure(State::kProblem, "trace.stopped", locks.error(), "Put /run right.");
  if (::geteuid() != 0 && locks)
    return findings.unknown("trace.stopped", "Whether a run owes the agent its start is not for this user to see",
                            kLookAsRoot);
  checkOwed(Owed::kStart, "trace.stopped", "its start", paths::kStartOwed, findings);
  checkOwed(Owed::kPlugIns, "trace.plug-ins", "the loading of its plug-ins", paths::kPlugInsOwed, findings);
}

}  // namespace kelt::check
