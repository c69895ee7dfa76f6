#include "modes/source_search.h"

#include <utility>

#include "base/console.h"
#include "base/utf.h"
#include "helper/agent_paths.h"
#include "helper/files.h"
#include "helper/leftovers.h"
#include "helper/unix_command_line_helper.h"
#include "modes/messages.h"

namespace kelt::modes {
namespace {

/// Looks for the site list in `directory`. Returns false where there is none, or, with a line on the console, where
/// that cannot be found out.
bool findSiteList(const std::string& directory) {
  const std::string siteList = directory + helper::paths::kSiteList;
  const helper::Presence presence = helper::presenceForReading(siteList);
  if (presence == helper::Presence::kUnknown) base::printLine(messages::kSiteListInaccessible + siteList);
  return presence == helper::Presence::kThere;
}

}  // namespace

std::array<std::wstring, 3> sourceCandidates(const std::wstring& sourceDir, const std::wstring& currentDir) {
  std::wstring joined = currentDir;
  joined.append(L"/").append(sourceDir);
  return {sourceDir, std::move(joined), currentDir};
}

}  // namespace kelt::modes

namespace kelt::helper {

// NOLINTNEXTLINE(performance-unnecessary-value-param): the signature is given
int unixCommandLineHelper::PrepareORVForManagedMode(std::wstring sourceDir, std::wstring currentDir) {
  for (const std::wstring& candidate : modes::sourceCandidates(sourceDir, currentDir)) {
    const std::string directory = base::toUtf8(candidate);
    if (!modes::findSiteList(directory)) continue;
    SetSourceDir(candidate);
    sweepDirectory(directory);
    // The first complete directory decides, whatever the switch from it comes to.
    if (allKeyFilesPresent()) return managedModeTask() ? 1 : 0;
  }
  base::printLine(modes::messages::kNoCompleteSource);
  return 0;
}

}  // namespace kelt::helper
