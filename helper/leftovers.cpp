#include "helper/leftovers.h"

#include "base/file_replace.h"
#include "base/sweep.h"
#include "base/utf.h"
#include "helper/agent_paths.h"
#include "helper/unix_command_line_helper.h"
#include "platform/afile.h"
#include "platform/iconfiguration.h"
#include "platform/logger.h"

namespace kelt::helper {

using quorvane_com::orv::configuration::IConfiguration;

void sweepDirectory(const std::wstring& directory) {
  for (const std::string& path : base::sweepDirectory(base::toUtf8(directory)))
    logInfo(L"keltcfg", base::toWide("Removed what an interrupted run left, " + path).c_str());
}

void sweepInstallation() {
  AString config;
  unixCommandLineHelper().GetORVPath(config);
  if (!config.empty()) sweepDirectory(base::toWide(base::directoryOf(base::toUtf8(config.str()))));
  const std::wstring data = IConfiguration::GetConfiguration().GetFrameworkDataDirectory();
  for (const std::wstring& directory : {std::wstring(paths::kInstallDir), std::wstring(paths::kScratchDir),
                                        std::wstring(paths::kScratchEtcDir), data, APath(data, paths::kKeyStore).str()})
    sweepDirectory(directory);
}

}  // namespace kelt::helper
