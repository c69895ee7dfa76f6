// The rehearsal of `keltconfig -m -d DIR`: which place is used, and each file in it.

#include "check/source.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>
#include <vector>

#include "check/look.h"
#include "check/room.h"

#include "base/utf.h"
#include "helper/agent_paths.h"
#include "helper/encoding.h"
#include "modes/key_file_check.h"
#include "modes/source_search.h"

namespace kelt::check {
namespace {

namespace paths = helper::paths;
using modes::KeyFileFinding;
using modes::KeyFileState;

constexpr const char* kDirectoryId = "source.directory";
constexpr const char* kComplete =
    "Put SiteList.xml, req2048seckey.bin, sr2048pubkey.bin and agentfipsmode of the server into the directory.";

/// Of a site list in one of the places.
enum class Found { kNo, kYes, kNotSeen };

/// Whether the switch would find a site list there.
Found siteListIn(const std::string& directory) {
  const std::string path = directory + paths::kSiteList;
  const auto info = lookAt(path);
  if (!info) return bNotSeen(info.error()) ? Found::kNotSeen : Found::kNo;
  if (::faccessat(AT_FDCWD, path.c_str(), R_OK, AT_EACCESS) == 0) return Found::kYes;
  return bNotSeen(errno) ? Found::kNotSeen : Found::kNo;
}

/// The end of a sentence about a key file; null for one that will do.
const char* whyUseless(KeyFileState state) {
  switch (state) {
    case KeyFileState::kMissing:
      return " is missing";
    case KeyFileState::kInaccessible:
      return " cannot be examined";
    case KeyFileState::kNotRegular:
      return " is not a regular file";
    case KeyFileState::kTooLarge:
      return " is larger than any key file";
    default:
      return nullptr;
  }
}

/// Tells of a file that the switch would make itself.
void tellToBeMade(const std::string& path, const std::string& directory, Findings& findings) {
  if (whyFixed(directory) == nullptr)
    return findings.ok("source.file", path + " is not there and would be made, empty, as its 2048-bit form is", path);
  findings.problem("source.file", path + " is not there, and cannot be made: the directory is read-only",
                   "Copy the directory to where it can be written to.", path);
}

/// Whether only another user can tell how it is with the file.
bool bUnseen(const std::string& path) {
  const auto info = lookAt(path);
  if (!info) return bNotSeen(info.error());
  return ::faccessat(AT_FDCWD, path.c_str(), R_OK, AT_EACCESS) != 0 && bNotSeen(errno);
}

/// Tells of one key file. Returns whether it is as the switch wants it.
bool bUsable(const KeyFileFinding& file, const std::string& directory, Findings& findings) {
  const std::string& path = file.path;
  const char* why = whyUseless(file.state);
  if (file.state == KeyFileState::kToBeMade) {
    tellToBeMade(path, directory, findings);
  } else if (why == nullptr) {
    findings.ok("source.file", path + " is there", path);
  } else if (bUnseen(path)) {
    findings.unknown("source.file", path + " is not for this user to see", kLookAsRoot, path);
  } else {
    findings.problem("source.file", path + why, kComplete, path);
  }
  return why == nullptr;
}

/// Keeps what is found of a place until it shows whether that is the one.
class KeptFindings final : public Findings {
 public:
  void take(Check check) override { m_checks.push_back(std::move(check)); }
  void takeFact(const std::string& /*name*/, const std::string& /*value*/) override {}
  void begin(const std::string& /*id*/, const std::string& /*waitsFor*/) override {}

  /// Passes all on. Of a place that is passed over no file is a problem, as another place is taken.
  void passOn(bool bPassedOver, Findings& findings) {
    for (Check& check : m_checks) {
      if (bPassedOver && check.state == State::kProblem) check.state = State::kWarning;
      findings.take(std::move(check));
    }
  }

 private:
  std::vector<Check> m_checks;
};

/// Tells of all key files of a place. Returns whether the switch would take it.
bool bComplete(const std::string& directory, Findings& findings) {
  bool bAll = true;
  for (const KeyFileFinding& file : modes::examineKeyFiles(directory))
    // In this order, for every file to be told of.
    bAll = bUsable(file, directory, findings) && bAll;
  return bAll;
}

/// 0 for what is not there, and takes no room.
std::uint64_t sizeOf(const std::string& path) {
  const auto info = lookAt(path);
  return info ? static_cast<std::uint64_t>(info.value().st_size) : 0;
}

/// The copies in the installation, the site list beside the old one, and what the import stores.
void checkRoomForCopies(const Device& device, const std::string& directory, Findings& findings) {
  std::vector<std::uint64_t> keys;
  for (const char* name :
       {paths::kRequestKey, paths::kRequestKey2048, paths::kFipsMarker, paths::kServerKey, paths::kServerKey2048})
    keys.push_back(sizeOf(directory + name));
  const std::uint64_t list = sizeOf(directory + paths::kSiteList);
  // A key in the store, or the record: each fits into one block as most file systems have it.
  constexpr std::uint64_t kStored = 4096;
  checkRoomFor({{paths::kInstallDir, keys},
                {paths::kScratchEtcDir, {list}},
                {device.dataDirectory, std::vector<std::uint64_t>(3, kStored)}},
               "source.room", findings);
}

/// The switch with the place that it would take.
void rehearse(const Device& device, const std::string& directory, Findings& findings) {
  findings.ok(kDirectoryId, "The switch would take its files from " + directory);
  checkSourceSiteList(directory, findings);
  checkSourceKeys(device, directory, findings);
  checkRoomForCopies(device, directory, findings);
}

/// Arguments are read as ISO-8859-1, byte by byte.
const char* remedyFor(const std::string& source) {
  for (const char c : source) {
    if (static_cast<unsigned char>(c) >= 0x80)
      return "Use a name in ASCII, or change into the directory and give '.': the tool reads its arguments as "
             "ISO-8859-1.";
  }
  return kComplete;
}

/// No place would do. Where one could not be looked at, that may be the one.
void tellNone(const std::string& source, const std::string& tried, bool bAllSeen, Findings& findings) {
  findings.put(bAllSeen ? State::kProblem : State::kUnknown, kDirectoryId,
               "None of the places that are searched holds a site list and all key files: " + tried,
               bAllSeen ? remedyFor(source) : kLookAsRoot);
}

}  // namespace

void checkSource(const Device& device, const std::string& source, Findings& findings) {
  findings.begin(kDirectoryId, {});
  if (source.starts_with('-'))
    return findings.problem(kDirectoryId, "keltconfig takes " + source + " for an option", "Put ./ before the name.");
  std::string tried;
  bool bAllSeen = true;
  KeptFindings passedOver;
  for (const std::wstring& wide :
       modes::sourceCandidates(helper::latin1_to_unicode(source), base::toWide(device.startedIn))) {
    const std::string candidate = base::toUtf8(wide);
    const Found siteList = siteListIn(candidate);
    if (siteList == Found::kNotSeen) bAllSeen = false;
    tried.append(tried.empty() ? "" : ", ").append(candidate);
    if (siteList != Found::kYes) continue;
    KeptFindings here;
    const bool bTaken = bComplete(candidate, here);
    // First the places that were passed over: they were searched before the one that is taken.
    if (bTaken) passedOver.passOn(true, findings);
    here.passOn(false, bTaken ? findings : static_cast<Findings&>(passedOver));
    if (bTaken) return rehearse(device, candidate, findings);
  }
  passedOver.passOn(false, findings);
  tellNone(source, tried, bAllSeen, findings);
}

}  // namespace kelt::check
