#include "helper/files.h"

#include "base/utf.h"
#include "platform/afile.h"

namespace kelt::helper {
namespace {

Presence examine(const std::string& path, AFiler::AFileAccess access) {
  // The operation tells by its result whether it knows; the three values leave no flag to forget.
  bool bExists = false;
  if (!AFiler::getFileAccessibility(base::toWide(path), access, bExists)) return Presence::kUnknown;
  return bExists ? Presence::kThere : Presence::kAbsent;
}

}  // namespace

Presence presenceForReading(const std::string& path) {
  return examine(path, AFiler::kRead);
}

Presence presenceOf(const std::string& path) {
  return examine(path, AFiler::kExistence);
}

std::optional<std::uint64_t> sizeOf(const std::string& path) {
  std::uint64_t size = 0;
  return AFiler::tryGetFileSize(base::toWide(path), size) ? std::optional(size) : std::nullopt;
}

std::optional<ABuffer> contentOf(const std::string& path) {
  ABuffer content;
  if (!AFile::tryRead(base::toWide(path), content)) return std::nullopt;
  return content;
}

bool deleteFile(const std::string& path) {
  return AFiler::deleteFile(base::toWide(path));
}

bool copyFile(const std::string& from, const std::string& to) {
  return AFiler::copyFile(base::toWide(from), base::toWide(to));
}

}  // namespace kelt::helper
