#include "helper/owed_start.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

#include "base/unique_fd.h"
#include "helper/agent_paths.h"

namespace kelt::helper {
namespace {

/// A single call that the system refuses is no reason to leave the agent stopped, or to start it twice.
constexpr int kTries = 3;

const char* markOf(Owed what) {
  return what == Owed::kStart ? paths::kStartOwed : paths::kPlugInsOwed;
}

}  // namespace

void owe(Owed what) noexcept {
  constexpr int kFlags = O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
  bool bMade = false;
  for (int tries = 0; tries < kTries && !bMade; ++tries)
    bMade = base::UniqueFd(::open(markOf(what), kFlags, 0600)).bValid();
}

void settle(Owed what) noexcept {
  for (int tries = 0; tries < kTries; ++tries) {
    if (::unlink(markOf(what)) == 0 || errno == ENOENT) return;
  }
}

bool bOwed(Owed what) noexcept {
  for (int tries = 0; tries < kTries; ++tries) {
    if (::access(markOf(what), F_OK) == 0) return true;
    if (errno == ENOENT) return false;
  }
  return false;
}

}  // namespace kelt::helper
