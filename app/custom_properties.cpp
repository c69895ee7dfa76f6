#include "app/custom_properties.h"

#include <cerrno>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "app/messages.h"
#include "base/console.h"
#include "base/file_replace.h"
#include "base/signals.h"
#include "base/unique_fd.h"
#include "base/utf.h"
#include "helper/agent_paths.h"
#include "platform/afile.h"
#include "platform/anxml.h"
#include "platform/iconfiguration.h"

namespace kelt::app {
namespace {

APath customPropertiesPath() {
  auto& configuration = quorvane_com::orv::configuration::IConfiguration::GetConfiguration();
  configuration.SetConfigurationDirectory(helper::paths::kConfigDir);
  return {configuration.GetFrameworkDataDirectory(), helper::paths::kCustomProperties};
}

/// Opens the file as it is before its deletion, so that its attributes outlive it. No descriptor when there is none, or
/// a link, of which the deletion takes the link and not the file.
base::UniqueFd openOld(const std::string& path) {
  struct stat info {};
  if (::lstat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) return {};
  return base::UniqueFd(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
}

bool bNothingAt(const std::string& path) {
  struct stat info {};
  return ::lstat(path.c_str(), &info) != 0 && errno == ENOENT;
}

/// Makes a file without properties with the owner, group and permissions of the deleted one: the agent reads it, and
/// may do so as another user. Where there was none, everybody may read it. It is these that the properties are then
/// added to. Returns whether the file was made; otherwise the first property makes one that only root reads.
bool bStarted(const std::string& path, int old) {
  constexpr std::string_view kEmpty = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<CustomProperties/>\n";
  return bNothingAt(path) && base::replaceFile(path, kEmpty, {.mode = 0644, .attributesOf = old}).ok();
}

}  // namespace

bool CommandLineData::writeCustomProps(std::wstring& value, int number) {
  const APath path = customPropertiesPath();
  AnXml document;
  if (!document.useFileAlways(path, L"CustomProperties", nullptr, nullptr)) return false;

  AnXmlNode root(&document);
  AnXmlNode property;
  const std::wstring name = L"CustomProps" + std::to_wstring(number);
  if (!root.addChild(&property, name.c_str(), nullptr, nullptr)) return false;
  property.setValue(L"value", value.c_str());
  return document.writeFile(path, false, false);
}

void replaceCustomProperties(CommandLineData& data) {
  const base::DeferredSignals untilItIsWhole;
  const APath path = customPropertiesPath();
  const std::string narrow = base::toUtf8(path.str());
  const base::UniqueFd old = openOld(narrow);
  if (!AFiler::deleteFile(path)) base::printLine(messages::fileNotDeleted(path.str()));

  const bool bNew = bStarted(narrow, old.get());
  std::wstring* const values[] = {&data.GetCustomProp1(), &data.GetCustomProp2(), &data.GetCustomProp3(),
                                  &data.GetCustomProp4()};
  bool bAny = false;
  int number = 0;
  for (std::wstring* value : values) {
    ++number;
    if (!value->empty() && data.writeCustomProps(*value, number)) bAny = true;
  }
  if (bNew && !bAny) ::unlink(narrow.c_str());  // without properties there is no file
}

}  // namespace kelt::app
