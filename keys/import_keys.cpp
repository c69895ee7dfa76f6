// The key import. Until the server's public key is in the key store and the setting that it is for is recorded, a
// failure ends it with key files and registry values as they were. From then on it goes through to the end, and the key
// files are removed last. A run that is cut short leaves a mark, by which the next one goes on: storing keys and
// setting is repeated from the key files, by the choices that were made; deleting goes on where it was.

#include <algorithm>
#include <optional>

#include "base/file_place.h"
#include "helper/agent_log.h"
#include "helper/agent_paths.h"
#include "helper/command_line_helper.h"
#include "helper/unfinished_work.h"
#include "keys/begun_import.h"
#include "keys/import_choice.h"
#include "keys/key_files.h"
#include "keys/registry_keys.h"
#include "keys/store_keys.h"
#include "modes/take_back.h"
#include "modes/unmanaged_mode.h"

namespace kelt::keys {
namespace {

using helper::logEvent;
using helper::logProblem;

/// Who hears of a file that cannot be deleted.
enum class Told { kConsole, kLog };

/// Deletes the originals of an import and brings that to the disk.
void deleteOriginals(const KeyFiles& files, Told told) {
  // What is no key stays: the agent is the one that it was (AgentGUID).
  removeKeys(false);
  if (told == Told::kConsole) deleteKeyFiles(files);
  if (told == Told::kLog) deleteKeyFilesInSilence(files);
  static_cast<void>(base::syncDirectory(base::directoryOf(files.fipsMarker)));
  static_cast<void>(base::syncDirectory(base::directoryOf(helper::paths::kRegistryFile)));
}

/// Whether the key files are others than `import` goes by: while it stores keys any difference counts, afterwards what
/// has come since.
bool bOthersThan(const BegunImport& import, const KeyFiles& files) {
  const auto now = identitiesOf(files);
  if (import.stage == Stage::kStoring) return now != import.files;
  return !std::equal(now.begin(), now.end(), import.files.begin(),
                     [](const auto& is, const auto& was) { return !bPresent(is) || is == was; });
}

/// What an import finds of an earlier one from the same directory.
struct Earlier {
  std::optional<bool> result;       ///< it was finished, with this result, and there is nothing else to import
  std::optional<BegunImport> past;  ///< it is to be begun anew, from other files
};

/// Finishes `import`, which the mark tells of. With `bOwn` for an import from the same directory.
Earlier finish(BegunImport import, helper::WorkMark& mark, bool bOwn) {
  const KeyFiles files = keyFilesIn(keyDirectory(import.fromUpdateDir));
  const bool bStoring = import.stage == Stage::kStoring;
  const bool bOtherFiles = bOthersThan(import, files);
  // Files that came into the update directory once all was stored are another update; a managed switch copies its own
  // anew.
  if (bOwn && bOtherFiles && (bStoring || !import.fromUpdateDir)) {
    logEvent("Beginning anew the key import that an earlier run began.");
    // From here on it is this run's, which replaces it by that of the import that follows, or removes it.
    static_cast<void>(mark.adopt(helper::Work::kKeyImport));
    return {std::nullopt, import};
  }
  logEvent("Finishing the key import that an earlier run began.");
  const bool bDone = !bStoring || (!bOtherFiles && store(import, files, mark));
  if (bDone && !bOtherFiles) {
    deleteOriginals(files, bOwn ? Told::kConsole : Told::kLog);
  } else if (bDone) {
    removeKeys(false);  // what is left of the key files may belong to the new ones by now
  } else {
    logProblem("The key import that an earlier run began could not be finished.");
    discardPairOf(import);
  }
  mark.end();
  return {bOwn && !bOtherFiles ? std::optional(bDone) : std::nullopt, std::nullopt};
}

/// The import that the mark tells of. A plan that does not read is none; the mark is then removed.
std::optional<BegunImport> markedImport(helper::WorkMark& mark) {
  if (!mark.found() || mark.found()->work != helper::Work::kKeyImport) return std::nullopt;
  auto import = importIn(mark.found()->plan);
  if (!import) {
    logProblem("Removed, being no mark of an import: the mark of unfinished work");
    mark.end();
  }
  return import;
}

/// Finishes the work of modes/ that the mark tells of, but for a switch that is the caller's `own` work. Whether it
/// told of such work.
bool finishWorkOfSwitch(helper::WorkMark& mark, std::optional<helper::Work> own) {
  const helper::Work work = mark.found()->work;
  if (work == helper::Work::kTakeBack) modes::finishTakingBack(mark);
  if (work == helper::Work::kUnmanagedSwitch && own != work) modes::finishUnmanagedSwitch(mark);
  return work != helper::Work::kKeyImport;
}

/// Finishes whatever the mark tells of, for an import from the one directory or the other.
Earlier finishBefore(bool fromUpdateDir, helper::WorkMark& mark) {
  if (!mark.found() || finishWorkOfSwitch(mark, std::nullopt)) return {};
  const auto import = markedImport(mark);
  return import ? finish(*import, mark, import->fromUpdateDir == fromUpdateDir) : Earlier{};
}

}  // namespace
}  // namespace kelt::keys

namespace kelt::helper {

bool CommandLineHelper::ImportKeys(bool fromUpdateDir) {
  const std::string directory = keys::keyDirectory(fromUpdateDir);
  if (directory.empty()) return keys::fail("Unable to get Agent Data Path, Agent might not be installed.");
  WorkMark mark;
  const keys::Earlier earlier = keys::finishBefore(fromUpdateDir, mark);
  if (earlier.result) return *earlier.result;
  const keys::KeyFiles files = keys::keyFilesIn(directory);
  keys::BegunImport import = keys::choose(fromUpdateDir, files, earlier.past);
  if (!keys::store(import, files, mark)) {
    // What the earlier one had still to do, as this one has not come to take its place.
    if (earlier.past) keys::discardPairOf(*earlier.past);
    return false;
  }
  keys::deleteOriginals(files, keys::Told::kConsole);
  return true;
}

void CommandLineHelper::finishInterrupted(std::optional<Work> own) {
  WorkMark mark;
  if (!mark.found() || keys::finishWorkOfSwitch(mark, own)) return;
  const auto import = keys::markedImport(mark);
  // One from the installation is what a switch to managed mode comes to by itself, with files that it copies anew.
  if (!import || (own == Work::kKeyImport && !import->fromUpdateDir)) return;
  static_cast<void>(keys::finish(*import, mark, false));
}

bool CommandLineHelper::RestitueBinFilesSLPwdsToPlainTxt() {
  return true;
}

bool CommandLineHelper::EncryptBinFilesSLPwds() {
  return true;
}

}  // namespace kelt::helper
