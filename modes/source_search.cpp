#include "modes/source_search.h"

#include <utility>

#include "base/console.h"
#include "helper/agent_paths.h"
#include "helper/leftovers.h"
#include "helper/unix_command_line_helper.h"
#include "modes/messages.h"
#include "platform/afile.h"

namespace kelt::helper {
namespace {

namespace messages = modes::messages;

bool bHasSiteList(const std::wstring& directory) {
  const std::wstring siteList = directory + paths::kSiteList;
  bool bExists = false;
  if (AFiler::getFileAccessibility(siteList, AFiler::kRead, bExists)) return bExists;
  base::printLine(messages::kSiteListInaccessible + siteList);
  return false;
}

}  // namespace

// NOLINTNEXTLINE(performance-unnecessary-value-param): the signature is given
int unixCommandLineHelper::PrepareORVForManagedMode(std::wstring sourceDir, std::wstring currentDir) {
  for (const std::wstring& candidate : modes::sourceCandidates(sourceDir, currentDir)) {
    if (!bHasSiteList(candidate)) continue;
    SetSourceDir(candidate);
    sweepDirectory(candidate);
    // The first complete directory decides, whatever the switch from it comes to.
    if (allKeyFilesPresent()) return managedModeTask() ? 1 : 0;
  }
  base::printLine(messages::kNoCompleteSource);
  return 0;
}

}  // namespace kelt::helper

namespace kelt::modes {

std::array<std::wstring, 3> sourceCandidates(const std::wstring& sourceDir, const std::wstring& currentDir) {
  std::wstring joined = currentDir;
  joined.append(L"/").append(sourceDir);
  return {sourceDir, std::move(joined), currentDir};
}

}  // namespace kelt::modes
