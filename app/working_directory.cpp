#include "app/working_directory.h"

#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include "app/messages.h"
#include "base/console.h"
#include "helper/agent_paths.h"
#include "platform/astring.h"
#include "platform/iconfiguration.h"

namespace kelt::app {
namespace {

constexpr std::size_t kPathBuffer = 1024;  // the terminating zero included

}  // namespace

std::optional<std::string> currentDirectory() {
  char buffer[kPathBuffer];
  if (::getcwd(buffer, sizeof(buffer)) != nullptr) return std::string(buffer);
  // The tool is single-threaded and changes no variable.
  const char* const fromShell = std::getenv("PWD");  // NOLINT(concurrency-mt-unsafe)
  if (fromShell == nullptr) return std::nullopt;
  return std::string(fromShell, ::strnlen(fromShell, kPathBuffer - 1));
}

bool enterAgentBinDirectory() {
  auto& configuration = quorvane_com::orv::configuration::IConfiguration::GetConfiguration();
  configuration.SetConfigurationDirectory(helper::paths::kConfigDir);
  const std::string path = quorvane_com::orv::tellcomn_wide_to_ansi(configuration.GetAgentBinDirectory());
  if (::chdir(path.c_str()) == 0) return true;
  base::printLine(messages::directoryNotEntered(path));
  return false;
}

}  // namespace kelt::app
