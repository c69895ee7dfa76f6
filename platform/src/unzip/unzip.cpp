#include "platform/unzip.h"

#include <exception>
#include <fcntl.h>

#include "unzip/guard.h"
#include "unzip/staged_tree.h"

#include "base/file_read.h"
#include "platform/refusals.h"

namespace kelt::platform {
namespace {

/// What the largest reply that provisioning keeps can hold.
constexpr std::size_t kMaxArchive = std::size_t{24} * 1024 * 1024;

Status unpack(const ZipArchive& archive, const std::vector<JudgedEntry>& entries, const char* directory) {
  // The directory itself is the caller's choice, and may well be a link.
  base::UniqueFd root(::open(directory, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!root) return base::systemError("open the target directory");
  StagedTree tree(std::move(root));
  for (const JudgedEntry& judged : entries) {
    if (auto status = tree.add(archive, judged); !status) return status;
  }
  return tree.commit();
}

Status unzip(const char* file, const char* directory) {
  // All of it at once: what is judged is then what is unpacked, whatever becomes of the file meanwhile.
  const auto content = base::readFile(file, kMaxArchive);
  if (!content) return content.error();
  const auto archive = ZipArchive::open(content.value());
  if (!archive) return archive.error();
  const auto entries = judgeArchive(archive.value());
  if (!entries) return entries.error();
  return unpack(archive.value(), entries.value(), directory);
}

}  // namespace
}  // namespace kelt::platform

int NsUnzip(const char* zipFile, const char* destDir) {
  if (zipFile == nullptr || destDir == nullptr) return -1;
  try {
    const auto unpacked = kelt::platform::unzip(zipFile, destDir);
    if (!unpacked) kelt::platform::logRefusal(zipFile, unpacked.error());
    return unpacked ? 0 : -1;
  } catch (const std::exception&) {
    return -1;  // want of memory
  }
}
