#include "app/custom_properties.h"

#include <cerrno>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "app/messages.h"
#include "base/console.h"
#include "base/file_replace.h"
#include "base/retry.h"
#include "base/signals.h"
#include "base/unique_fd.h"
#include "base/utf.h"
#include "helper/agent_directories.h"
#include "helper/agent_paths.h"
#include "helper/files.h"
#include "platform/anxml.h"

namespace kelt::app {
namespace {

std::string customPropertiesPath() {
  return helper::inAgentDataDirectory(helper::paths::kCustomProperties);
}

/// Examines what stands at `path`, and once more where the system does not tell. Returns 0 or the error.
int examine(const std::string& path, struct stat& info) {
  int error = 0;
  const auto tell = [&] {
    error = ::lstat(path.c_str(), &info) == 0 ? 0 : errno;
    return error == 0 || error == ENOENT;
  };
  static_cast<void>(base::askTwice(tell));
  return error;
}

/// Opens the file as it is before its deletion, so that its attributes outlive it. No descriptor when there is none, or
/// a link, of which the deletion takes the link and not the file.
base::UniqueFd openOld(const std::string& path) {
  struct stat info {};
  if (examine(path, info) != 0 || !S_ISREG(info.st_mode)) return {};
  base::UniqueFd fd;
  const auto open = [&] {
    // Without waiting, should a FIFO have come to stand there since it was examined.
    fd.reset(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    return fd.bValid();
  };
  static_cast<void>(base::askTwice(open));
  return fd;
}

/// Only a clear answer counts: where the system does not tell, something may stand there, and nothing is put over it.
bool bNothingAt(const std::string& path) {
  struct stat info {};
  return examine(path, info) == ENOENT;
}

/// A file without properties, with the owner, group and permissions of the deleted one: the agent reads it, and may do
/// so as another user. Where there was none, everybody may read it. It is these that the properties are then added to;
/// where it cannot be made, the first property makes one that only root reads. It is gone with its object unless a
/// property came into it.
class EmptyFile {
 public:
  explicit EmptyFile(const std::string& path) : m_path(path) {}
  void make(int old) {
    constexpr std::string_view kEmpty = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<CustomProperties/>\n";
    m_bAlone = bNothingAt(m_path);  // from here on it may be there, whatever is returned or thrown
    if (!m_bAlone) return;
    const auto replace = [&] { return base::replaceFile(m_path, kEmpty, {.mode = 0644, .attributesOf = old}).ok(); };
    static_cast<void>(base::askTwice(replace));
  }
  EmptyFile(const EmptyFile&) = delete;
  EmptyFile& operator=(const EmptyFile&) = delete;
  ~EmptyFile() {
    if (m_bAlone) ::unlink(m_path.c_str());
  }
  void keep() { m_bAlone = false; }

 private:
  const std::string& m_path;
  bool m_bAlone = false;
};

}  // namespace

bool CommandLineData::writeCustomProps(std::wstring& value, int number) {
  const std::wstring path = base::toWide(customPropertiesPath());
  AnXml document;
  // Read anew for each property: what the ones before it have written is in the file alone.
  if (!document.useFileAlways(path.c_str(), L"CustomProperties", nullptr, nullptr)) return false;

  AnXmlNode root(&document);
  AnXmlNode property;
  const std::wstring name = L"CustomProps" + std::to_wstring(number);
  if (!root.addChild(&property, name.c_str(), nullptr, nullptr)) return false;
  property.setValue(L"value", value.c_str());
  // Each property by itself, whole or not at all: a run that is killed leaves a file that the agent can read.
  return document.writeFile(path.c_str(), false, false);
}

void replaceCustomProperties(CommandLineData& data) {
  const base::DeferredSignals untilItIsWhole;
  const std::string path = customPropertiesPath();
  const base::UniqueFd old = openOld(path);
  // Once more: new properties beside those of an old file that is only refused for once would be wrong ones.
  if (!base::askTwice([&] { return helper::deleteFile(path); })) base::printLine(messages::fileNotDeleted(path));

  EmptyFile file(path);
  file.make(old.get());
  // One that cannot be written does not keep the others from being reported.
  std::wstring* const values[] = {&data.GetCustomProp1(), &data.GetCustomProp2(), &data.GetCustomProp3(),
                                  &data.GetCustomProp4()};
  int number = 0;
  for (std::wstring* value : values) {
    ++number;
    if (!value->empty() && data.writeCustomProps(*value, number)) file.keep();
  }
}

}  // namespace kelt::app
