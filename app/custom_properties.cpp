#include "app/custom_properties.h"

#include <string>

#include "app/messages.h"
#include "base/console.h"
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
  const APath path = customPropertiesPath();
  if (!AFiler::deleteFile(path)) base::printLine(messages::fileNotDeleted(path.str()));

  std::wstring* const values[] = {&data.GetCustomProp1(), &data.GetCustomProp2(), &data.GetCustomProp3(),
                                  &data.GetCustomProp4()};
  int number = 0;
  for (std::wstring* value : values) {
    ++number;
    if (!value->empty()) data.writeCustomProps(*value, number);
  }
}

}  // namespace kelt::app
