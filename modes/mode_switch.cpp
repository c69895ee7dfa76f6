// The one operation through which the driver changes the agent's mode.

#include "base/secret.h"
#include "base/utf.h"
#include "helper/unix_command_line_helper.h"
#include "helper/while_stopped.h"
#include "provision/provision.h"

namespace kelt::modes {
namespace {

/// Keeps the narrow form of a secret, and wipes what it was made from. Copied, not moved: a short text stands in the
/// string object itself, where moving would leave it.
void keepNarrow(std::wstring& secret, std::string& kept) {
  const base::WipeAtEnd wipeSecret(secret);
  std::string narrow = base::toUtf8(secret);
  const base::WipeAtEnd wipeNarrow(narrow);
  kept = narrow;
}

/// Exit statuses of the switch; those of provisioning are added to kProvisioningFailed.
enum SwitchStatus : int { kDone = 0, kSwitchFailed = 1, kStartFailed = 4, kStopFailed = 5, kProvisioningFailed = 30 };

int statusOf(const helper::Interruption& change) {
  if (!change.bStopped) return kStopFailed;
  // Before the outcome of the switch: an agent that does not run is what there is to mend first.
  if (change.bStartFailed) return kStartFailed;
  return change.bDone ? kDone : kSwitchFailed;
}

}  // namespace
}  // namespace kelt::modes

namespace kelt::helper {

int unixCommandLineHelper::PrepareORV(bool managed, bool noStart, std::wstring sourceDir, std::wstring currentDir,
                                      bool /*pFlag*/, std::wstring /*logFile*/, bool /*fFlag*/, bool provision,
                                      std::wstring server, std::wstring user, std::wstring password) {
  m_provisionFromServer = provision;
  m_fetchedInto.reset();
  m_server = base::toUtf8(server);
  m_user = base::toUtf8(user);
  const base::WipeAtEnd wipeAlsoWithoutMemory(m_password);
  modes::keepNarrow(password, m_password);
  if (provision) m_provisionResult = provision::Provision::iGetProvisionFiles(sourceDir, m_server, m_user, m_password);
  base::wipe(m_password);  // nothing needs it any more, and commands are run from here on
  base::wipeUnusedStack();
  if (provision && m_provisionResult != 0) return modes::kProvisioningFailed + m_provisionResult;
  if (provision) m_fetchedInto = fileIdOf(base::toUtf8(sourceDir) + "/");

  const StartAgain startAgain = noStart ? StartAgain::kNever : StartAgain::kAlways;
  const Interruption change = whileStopped(*this, startAgain, [&] {
    finishInterrupted(managed ? Work::kKeyImport : Work::kUnmanagedSwitch);
    if (!managed) return PrepareORVForUnmanagedMode();
    if (PrepareORVForManagedMode(sourceDir, currentDir) != 0) return ImportKeys(false);
    finishInterrupted(std::nullopt);  // an import that was left for this one to go on with, too
    return false;
  });
  return modes::statusOf(change);
}

}  // namespace kelt::helper
