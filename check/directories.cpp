// The directories that a run enters and writes to.

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "check/device.h"
#include "check/look.h"

#include "base/file_place.h"
#include "helper/agent_paths.h"
#include "keys/key_files.h"
#include "modes/clear_file.h"

namespace kelt::check {
namespace {

namespace paths = helper::paths;
using quorvane_com::QV::crypto::KeyType;

/// A directory, and what a run needs of it.
struct Wanted {
  const char* id;
  std::string path;
  const char* name;
  State whenBroken;
  bool bWritten;
  bool bKnown = true;  ///< it is that one, and not only usually
};

constexpr const char* kMake = "Install the agent again, or make the directory, root's and with mode 0755.";

/// The beginning of a sentence about it.
std::string quoted(const Wanted& wanted) {
  return std::string("The ") + wanted.name + ", " + wanted.path + ", ";
}

/// Why root could not write into the directory; null where it can.
const char* whyNotWritten(const std::string& path) {
  if (const char* why = whyFixed(path)) return why;
  // What another user may do there says nothing of root.
  if (::geteuid() == 0 && ::faccessat(AT_FDCWD, path.c_str(), W_OK | X_OK, AT_EACCESS) != 0)
    return "cannot be written to";
  return nullptr;
}

/// What was seen of a directory that is to be written to, and nothing is against it.
const char* fitFor(uid_t user) {
  return user == 0 ? "can be entered and written to" : "can be entered, and its file system is not read-only";
}

/// Tells the first thing that is wrong with it.
void check(const Wanted& wanted, Findings& findings) {
  if (!wanted.bKnown) return findings.unknown(wanted.id, quoted(wanted) + "may be another", kLookAsRoot);
  const auto info = lookAt(wanted.path);
  if (!info) return findings.failure(wanted.whenBroken, wanted.id, info.error(), kMake);
  if (!S_ISDIR(info.value().st_mode))
    return findings.put(wanted.whenBroken, wanted.id, quoted(wanted) + "is a " + kindOf(info.value()), kMake);
  // By the effective user, as whom a directory is entered.
  if (::faccessat(AT_FDCWD, wanted.path.c_str(), X_OK, AT_EACCESS) != 0)
    return findings.failure(wanted.whenBroken, wanted.id, base::systemError("enter " + wanted.path), kMake);
  const char* why = wanted.bWritten ? whyNotWritten(wanted.path) : nullptr;
  if (why != nullptr) {
    return findings.put(wanted.whenBroken, wanted.id, quoted(wanted) + why,
                        "Mount its file system for writing (mount -o remount,rw), or take its attributes away (chattr "
                        "-i -a).");
  }
  findings.ok(wanted.id, quoted(wanted) + (wanted.bWritten ? fitFor(::geteuid()) : "can be entered"));
}

constexpr const char* kTarget = "directory.target";

/// What a switch replaces or deletes: nothing but a file can be.
void checkKind(const std::string& path, Findings& findings) {
  const auto info = lookAt(path);
  if (!info) {
    const int error = info.error().sysErrno;
    // A link may lead nowhere; it is resolved, and the file made there.
    if (error == ENOENT || error == ENOTDIR) return;
    return findings.failure(State::kProblem, kTarget, info.error(), "Remove what stands there.", path);
  }
  if (S_ISREG(info.value().st_mode)) return;
  findings.problem(kTarget, path + ", which a switch replaces or deletes, is a " + kindOf(info.value()),
                   "Remove what stands there.", path);
}

/// A file may be fixed where its directory is not: by a mount of its own, or by an attribute.
void checkFixed(const std::string& path, State whenFixed, Findings& findings) {
  const char* why = whyFixed(path);
  if (why == nullptr || whyFixed(base::directoryOf(path)) != nullptr) return;  // of the directory, that is told already
  findings.put(whenFixed, kTarget, path + ", which a switch replaces, " + why,
               "Take the mount or the attributes away (umount, chattr -i -a).", path);
}

/// A cache is deleted, and of a link nothing but the link.
void checkCache(const std::string& path, Findings& findings) {
  checkKind(path, findings);
  const auto link = lookAt(path, true);
  if (!link || !S_ISREG(link.value().st_mode)) return;
  if (!bMountPoint(path)) return checkFixed(path, State::kProblem, findings);
  findings.problem(kTarget, path + ", which a switch deletes, is a mount point", "Unmount it.", path);
}

/// Whatever is not a file in the place of the site list or of a stored key, other checks tell of.
void checkTargets(const Device& device, Findings& findings) {
  const keys::KeyFiles installed = keys::keyFilesIn(keys::keyDirectory(false));
  for (const std::string* path : keys::inOrder(installed)) {
    checkKind(*path, findings);
    checkFixed(*path, State::kProblem, findings);
  }
  for (const modes::FileToClear& cache : {modes::serverSiteList(), modes::siteCache()})
    checkCache(cache.path, findings);
  checkFixed(std::string(paths::kScratchEtcDir) + paths::kSiteList, State::kProblem, findings);
  for (const KeyType type : {KeyType::kServerPublic, KeyType::kServerRequestSecret})
    checkFixed(platform::storedKeyPath(device.keyStore, type), State::kProblem, findings);
  if (!device.agentConfigPath.empty()) checkFixed(device.agentConfigPath, State::kWarning, findings);
}

/// The import makes the key store where it is missing, and key.store tells of what is none.
void checkKeyStore(const Device& device, Findings& findings) {
  const auto info = lookAt(device.keyStore);
  if (info && S_ISDIR(info.value().st_mode))
    check({"directory.key-store", device.keyStore, "key store", State::kProblem, true}, findings);
}

}  // namespace

void checkDirectories(const Device& device, Findings& findings) {
  findings.begin("directory.bin", {});
  const bool bKnown = device.bDirectoriesKnown;
  check({"directory.bin", device.binDirectory, "agent's binary directory", State::kProblem, false, bKnown}, findings);
  check({"directory.install", paths::kInstallDir, "installation directory", State::kProblem, true}, findings);
  check({"directory.scratch", paths::kScratchDir, "scratch directory", State::kProblem, true}, findings);
  check({"directory.site-list", paths::kScratchEtcDir, "directory of the site list", State::kProblem, true}, findings);
  check({"directory.data", device.dataDirectory, "agent's data directory", State::kProblem, true, bKnown}, findings);
  if (!device.agentConfigPath.empty())
    check({"directory.config", base::directoryOf(device.agentConfigPath), "directory of the agent's configuration",
           State::kWarning, true},
          findings);
  if (bKnown) checkKeyStore(device, findings);
  checkTargets(device, findings);
}

}  // namespace kelt::check
