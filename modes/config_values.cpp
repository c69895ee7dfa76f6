#include "modes/config_values.h"

#include <utility>

#include "base/file_read.h"
#include "base/file_replace.h"
#include "base/retry.h"
#include "base/utf.h"
#include "helper/agent_paths.h"
#include "platform/afile.h"
#include "platform/config_directory.h"

namespace kelt::modes {
namespace {

namespace paths = helper::paths;

}  // namespace

std::wstring getORVConfPath() {
  return base::toWide(paths::kInstallDir);
}

std::wstring getORVScratchPath() {
  return base::toWide(paths::kScratchDir);
}

void getconfigPath(std::string& path) {
  platform::ConfigDirectory directory(paths::kConfigDir);
  if (const auto name = directory.nextAgent()) path = directory.fileOf(*name);
}

int load_file_to_buffer(const std::string& path, std::string& content) {
  const auto text = base::readText(path, kMaxEditedConfig);
  if (!text) return 0;
  content = text.value().substr(0, text.value().find('\0'));
  return 1;
}

std::optional<std::string> withValue(const std::string& content, const std::string& name, std::string value) {
  // As text, not as XML: every byte of the agent's file but the value stays as it is.
  const std::string startTag = "<" + name + ">";
  const std::size_t start = content.find(startTag);
  // Looked for from the start of the file, not from the start tag.
  const std::size_t end = content.find("</" + name + ">");
  if (start == std::string::npos || end == std::string::npos) return std::nullopt;

  std::string updated = std::move(value);
  updated.insert(0, content, 0, start + startTag.size());
  updated.append(content, end);
  return updated;
}

bool update_value_to_file(const std::string& content, const std::string& name, std::string value, std::string& path) {
  const auto updated = withValue(content, name, std::move(value));
  if (!updated) return false;
  // A failure leaves the old file, which holds a value that the agent can work with; callers do not act on it.
  static_cast<void>(base::askTwice([&] { return base::replaceFile(path, *updated).ok(); }));
  return true;
}

bool bSetServerPublicKeyHashInfo(std::string hash) {
  std::string path;
  getconfigPath(path);
  if (path.empty()) return false;
  std::string content;
  if (load_file_to_buffer(path, content) != 1) return false;
  return update_value_to_file(content, "binsphash", std::move(hash), path);
}

bool bFileExists(std::wstring path) {
  const AString file(std::move(path));
  bool bAccessible = false;
  bool bExists = false;
  // Asked twice each: by the answer an import chooses mode and key size.
  const auto examine = [&] { return AFiler::getFileAccessibility(file, AFiler::kRead, bAccessible, bExists); };
  if (file.empty() || !base::askTwice(examine)) return false;
  std::uint64_t size = 0;
  const auto measure = [&] { return AFiler::tryGetFileSize(file, size); };
  return bAccessible && bExists && base::askTwice(measure) && size > 0;
}

}  // namespace kelt::modes
