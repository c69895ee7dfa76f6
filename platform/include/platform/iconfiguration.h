#pragma once
// Where the installed agent keeps its binaries and its data.

#include <string>

#include "base/result.h"
#include "platform/config_directory.h"

namespace quorvane_com::orv::configuration {

/// The process-wide configuration object. It reads the agent's own "config.xml", in the first directory under the
/// configuration directory whose name contains "ZENTORAGENT", each time it is asked. Only a file that is trusted
/// (platform/config_directory.h) names a directory; why another one was refused goes to the agent log.
class IConfiguration {
 public:
  /// The one object of the process.
  [[nodiscard]] static IConfiguration& GetConfiguration();

  virtual ~IConfiguration() = default;

  /// Sets the directory in which the products' directories stand. Before the first call it is the agent's usual one.
  virtual void SetConfigurationDirectory(const std::wstring& directory) = 0;

  /// The text of `AgentBinDirectory`, or "/opt/Quorvane/orv/bin" where the file is missing, is not trusted or does not
  /// load, or has no such element or a blank one. Fails for nothing but want of memory (std::bad_alloc).
  [[nodiscard]] virtual std::wstring GetAgentBinDirectory() const = 0;

  /// The same for `FrameworkDataDirectory` and "/opt/Quorvane/orv/scratch".
  [[nodiscard]] virtual std::wstring GetFrameworkDataDirectory() const = 0;
};

/// The two directories, as IConfiguration gives them.
struct AgentDirectories {
  std::wstring bin;
  std::wstring data;
};

/// What they are where the agent's own configuration file was loaded, or refused, as `file`. Nothing is read or logged.
[[nodiscard]] AgentDirectories directoriesIn(const kelt::base::Result<kelt::platform::ConfigFile>& file);

}  // namespace quorvane_com::orv::configuration
