#include "modes/clear_file.h"

#include "base/console.h"
#include "helper/agent_paths.h"
#include "helper/files.h"
#include "modes/messages.h"

namespace kelt::modes {

namespace paths = helper::paths;
using helper::Presence;

FileToClear serverSiteList() {
  return {std::string(paths::kScratchDir) + paths::kServerSiteList, messages::kSiteListInaccessible,
          messages::kSiteListNotDeleted};
}

FileToClear siteCache() {
  return {std::string(paths::kScratchEtcDir) + paths::kSiteCache, messages::kSiteCacheInaccessible,
          messages::kSiteCacheNotDeleted};
}

Cleared clearFile(const FileToClear& file) {
  // Looked at first, as there need be none, and deleting what is not there would be a failure.
  switch (helper::presenceForReading(file.path)) {
    case Presence::kAbsent:
      return Cleared::kAbsent;
    case Presence::kUnknown:
      base::printLine(file.inaccessible + file.path);
      return Cleared::kFailed;
    case Presence::kThere:
      break;
  }
  return deleteOrComplain(file.path, file.notDeleted) ? Cleared::kDeleted : Cleared::kFailed;
}

bool deleteOrComplain(const std::string& path, const char* notDeleted) {
  if (helper::deleteFile(path)) return true;
  base::printLine(notDeleted + path);
  return false;
}

}  // namespace kelt::modes
