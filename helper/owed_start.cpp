#include "helper/owed_start.h"

#include <array>
#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <optional>
#include <time.h>
#include <unistd.h>

#include "base/running_process.h"
#include "base/unique_fd.h"
#include "helper/agent_paths.h"

namespace kelt::helper {
namespace {

/// A single call that the system refuses is no reason to leave the agent stopped, or to start it twice.
constexpr int kTries = 3;

/// A command that hangs must not keep the agent stopped for ever: 5 minutes, looked at every 20 milliseconds.
constexpr int kLooks = 15'000;
constexpr timespec kPause{0, 20'000'000};

const char* markOf(Owed what) {
  return what == Owed::kStart ? paths::kStartOwed : paths::kPlugInsOwed;
}

/// Number and moment of a base::SeenProcess.
using Signature = std::array<std::int64_t, 2>;

/// Says in the mark which process makes the debt, for awaitCommand. Without that, nobody waits for it.
void signMark(int mark) noexcept {
  const base::SeenProcess self = base::thisProcess();
  const Signature signature{self.number, self.seenAt};
  for (int tries = 0; tries < kTries; ++tries) {
    // Over an earlier one, which has the same length: who made the debt last is who is waited for.
    if (::pwrite(mark, signature.data(), sizeof signature, 0) == sizeof signature) return;
  }
}

/// Who made the debt last; nobody where there is no mark, or one that does not say.
std::optional<base::SeenProcess> signerOf(Owed what) noexcept {
  constexpr int kFlags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
  for (int tries = 0; tries < kTries; ++tries) {
    const base::UniqueFd mark(::open(markOf(what), kFlags));
    Signature signature{};
    if (mark && ::pread(mark.get(), signature.data(), sizeof signature, 0) == sizeof signature)
      return base::SeenProcess{static_cast<pid_t>(signature[0]), signature[1]};
    if (!mark && errno == ENOENT) break;
  }
  return std::nullopt;
}

}  // namespace

void owe(Owed what) noexcept {
  // A mark that is there already stands for the same debt.
  constexpr int kFlags = O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
  base::UniqueFd mark;
  for (int tries = 0; tries < kTries && !mark; ++tries)
    mark.reset(::open(markOf(what), kFlags, 0600));
  // Not synced: /run is emptied at every boot (FHS 3.0, 3.15), so that a power cut takes the debt with it.
  if (mark) signMark(mark.get());
}

void awaitCommand(Owed what) noexcept {
  const auto signer = signerOf(what);
  if (!signer) return;
  for (int looks = 0; looks < kLooks && base::bRuns(*signer); ++looks)
    ::nanosleep(&kPause, nullptr);
}

pid_t runningCommand(Owed what) noexcept {
  const auto signer = signerOf(what);
  return signer && base::bRuns(*signer) ? signer->number : 0;
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
