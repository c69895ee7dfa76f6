#include "keys/key_files.h"

#include "base/console.h"
#include "base/retry.h"
#include "helper/agent_paths.h"
#include "keys/messages.h"
#include "modes/config_values.h"
#include "platform/afile.h"
#include "platform/logger.h"

namespace kelt::keys {

namespace paths = helper::paths;

std::array<const std::wstring*, kKeyFileCount> inOrder(const KeyFiles& files) {
  return {&files.serverKey2048, &files.requestKey2048, &files.serverKey, &files.requestKey, &files.fipsMarker};
}

KeyFiles keyFilesIn(const std::wstring& directory) {
  return {directory + paths::kServerKey2048, directory + paths::kRequestKey2048, directory + paths::kServerKey,
          directory + paths::kRequestKey, directory + paths::kFipsMarker};
}

std::wstring keyDirectory(bool fromUpdateDir) {
  return fromUpdateDir ? modes::getORVScratchPath() + paths::kUpdateDir : modes::getORVConfPath();
}

bool bMarkerSaysFips(const std::wstring& fipsMarker) {
  ABuffer content;
  return base::bAskedTwice([&] { return AFile::tryRead(fipsMarker, content); }) && content.length() > 0 &&
         content.data()[0] == '1';
}

void deleteKeyFiles(const KeyFiles& files) {
  for (const std::wstring* path : inOrder(files)) {
    if (!AFiler::deleteFile(*path)) base::printLine(messages::couldNotDelete(*path));
  }
}

void deleteKeyFilesInSilence(const KeyFiles& files) {
  for (const std::wstring* path : inOrder(files)) {
    bool bThere = true;
    const bool bKnown = AFiler::getFileAccessibility(*path, AFiler::kExistence, bThere);
    if ((bKnown && !bThere) || AFiler::deleteFile(*path)) continue;
    logError(L"keltcfg", messages::couldNotDelete(*path).c_str());
  }
}

}  // namespace kelt::keys
