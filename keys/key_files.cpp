#include "keys/key_files.h"

#include <optional>

#include "base/console.h"
#include "base/retry.h"
#include "base/utf.h"
#include "helper/agent_log.h"
#include "helper/agent_paths.h"
#include "helper/files.h"
#include "keys/messages.h"
#include "modes/config_values.h"

namespace kelt::keys {

namespace paths = helper::paths;

std::array<const std::string*, kKeyFileCount> inOrder(const KeyFiles& files) {
  return {&files.serverKey2048, &files.requestKey2048, &files.serverKey, &files.requestKey, &files.fipsMarker};
}

KeyFiles keyFilesIn(const std::string& directory) {
  // The names begin with a slash. Where the directory ends in one there are two, and messages show both.
  return {directory + paths::kServerKey2048, directory + paths::kRequestKey2048, directory + paths::kServerKey,
          directory + paths::kRequestKey, directory + paths::kFipsMarker};
}

std::string keyDirectory(bool fromUpdateDir) {
  if (!fromUpdateDir) return base::toUtf8(modes::getORVConfPath());
  return base::toUtf8(modes::getORVScratchPath()) + paths::kUpdateDir;
}

bool bFileExists(const std::string& path) {
  return modes::bFileExists(base::toWide(path));
}

bool bMarkerSaysFips(const std::string& fipsMarker) {
  // Twice, as a marker that the system refuses for once must not take FIPS mode from an agent.
  std::optional<ABuffer> content;
  const auto read = [&] { return (content = helper::contentOf(fipsMarker)).has_value(); };
  return base::askTwice(read) && content->length() > 0 && content->data()[0] == '1';
}

void deleteKeyFiles(const KeyFiles& files) {
  // All of them, though an import takes two at most: no key stays where nobody looks after it.
  for (const std::string* path : inOrder(files)) {
    if (!helper::deleteFile(*path)) base::printLine(messages::couldNotDelete(*path));
  }
}

void deleteKeyFilesInSilence(const KeyFiles& files) {
  for (const std::string* path : inOrder(files)) {
    if (helper::presenceOf(*path) == helper::Presence::kAbsent || helper::deleteFile(*path)) continue;
    helper::logProblem(messages::couldNotDelete(*path));
  }
}

}  // namespace kelt::keys
