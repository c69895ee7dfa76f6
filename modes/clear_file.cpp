#include "modes/clear_file.h"

#include "base/console.h"
#include "helper/agent_paths.h"
#include "modes/messages.h"
#include "platform/afile.h"

namespace kelt::modes {

namespace paths = helper::paths;

ClearedFile serverSiteList() {
  return {std::wstring(paths::kScratchDir) + paths::kServerSiteList, messages::kSiteListInaccessible,
          messages::kSiteListNotDeleted};
}

ClearedFile siteCache() {
  return {std::wstring(paths::kScratchEtcDir) + paths::kSiteCache, messages::kSiteCacheInaccessible,
          messages::kSiteCacheNotDeleted};
}

Cleared clearFile(const ClearedFile& file) {
  bool bExists = false;
  if (!AFiler::getFileAccessibility(file.path, AFiler::kRead, bExists)) {
    base::printLine(file.inaccessible + file.path);
    return Cleared::kFailed;
  }
  if (!bExists) return Cleared::kAbsent;
  return deleteOrComplain(file.path, file.notDeleted) ? Cleared::kDeleted : Cleared::kFailed;
}

bool deleteOrComplain(const std::wstring& path, const wchar_t* notDeleted) {
  if (AFiler::deleteFile(path)) return true;
  base::printLine(notDeleted + path);
  return false;
}

}  // namespace kelt::modes
