#include "helper/agent_directories.h"

#include "base/utf.h"
#include "helper/agent_paths.h"
#include "platform/afile.h"
#include "platform/iconfiguration.h"

namespace kelt::helper {
namespace {

using quorvane_com::orv::configuration::IConfiguration;

const IConfiguration& configuration() {
  // Each time: the object is the process's, and whoever asks first sets where it looks.
  IConfiguration& ours = IConfiguration::GetConfiguration();
  ours.SetConfigurationDirectory(base::toWide(paths::kConfigDir));
  return ours;
}

}  // namespace

std::string agentBinDirectory() {
  return base::toUtf8(configuration().GetAgentBinDirectory());
}

std::string agentDataDirectory() {
  return base::toUtf8(configuration().GetFrameworkDataDirectory());
}

std::string inAgentDataDirectory(const std::string& name) {
  return base::toUtf8(APath(configuration().GetFrameworkDataDirectory(), base::toWide(name)).str());
}

}  // namespace kelt::helper
