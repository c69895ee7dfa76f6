#include "provision/received_files.h"

#include <array>
#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

#include "base/fresh_file.h"
#include "platform/astring.h"
#include "platform/logger.h"

namespace kelt::provision {
namespace {

using quorvane_com::orv::tellcomn_ansi_to_wide;

struct Name {
  const char* text;
  bool bWrittenNext;  ///< by the steps of provisioning that follow
};
constexpr std::array kNames{Name{"/req2048seckey.bin", false}, Name{"/reqseckey.bin", false},
                            Name{"/agentfipsmode", true},      Name{"/sr2048pubkey.bin", false},
                            Name{"/srpubkey.bin", false},      Name{"/sitelist.xml", false},
                            Name{"/SiteList.xml", true}};

/// A key in the form that every server hands out now, and in the one of old.
struct KeyForms {
  const char* full;
  const char* legacy;
};
constexpr std::array kKeys{KeyForms{"/req2048seckey.bin", "/reqseckey.bin"},
                           KeyForms{"/sr2048pubkey.bin", "/srpubkey.bin"}};

bool bOurs(const struct stat& info) {
  constexpr mode_t kWritableByOthers = S_IWGRP | S_IWOTH;
  // A file of ours under a second name could be written to by way of that.
  return S_ISREG(info.st_mode) && info.st_uid == ::geteuid() && info.st_nlink == 1 &&
         (info.st_mode & kWritableByOthers) == 0;
}

bool bOursAt(const std::string& path) {
  struct stat info {};
  // The name itself: a link that a stranger made can lead to a file of ours.
  return ::lstat(path.c_str(), &info) == 0 && bOurs(info);
}

/// Returns whether nothing under the name can become the agent's now that is not ours.
bool removeStranger(const std::string& directory, const Name& name) {
  const std::string path = directory + name.text;
  struct stat info {};
  // What cannot be looked at may be a stranger's.
  if (::lstat(path.c_str(), &info) != 0) return errno == ENOENT;
  if (bOurs(info) || (S_ISDIR(info.st_mode) && name.bWrittenNext)) return true;
  const bool bRemoved = ::unlink(path.c_str()) == 0;
  const char* outcome = bRemoved ? "Removed what is no file of ours, " : "Cannot remove what is no file of ours, ";
  const std::wstring line = tellcomn_ansi_to_wide(outcome + path);
  (bRemoved ? logInfo : logError)(L"keltcfg", line.c_str());
  return bRemoved;
}

}  // namespace

bool removeStrangers(const std::string& directory) {
  // All of them, though one that stays refuses the lot: what can be removed is no trap for the next run either.
  bool bAll = true;
  for (const Name& name : kNames) {
    if (!removeStranger(directory, name)) bAll = false;
  }
  return bAll;
}

void claimLegacyNames(const std::string& directory) {
  for (const KeyForms& key : kKeys) {
    if (!bOursAt(directory + key.full) || bOursAt(directory + key.legacy)) continue;
    static_cast<void>(base::makeFreshFile(directory + key.legacy, {}));
  }
}

}  // namespace kelt::provision
