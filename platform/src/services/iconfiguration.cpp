#include "platform/iconfiguration.h"

#include "device_paths.h"
#include "services/agent_directories.h"

#include "base/utf.h"
#include "platform/config_directory.h"
#include "platform/refusals.h"

namespace quorvane_com::orv::configuration {
namespace {

namespace paths = kelt::platform::paths;
using kelt::Result;
using kelt::platform::ConfigDirectory;
using kelt::platform::ConfigFile;

/// A text of the agent's own configuration, and where it has none.
struct DirectoryValue {
  const wchar_t* element;
  const char* fallback;
};
constexpr DirectoryValue kBin{L"AgentBinDirectory", paths::kDefaultBinDir};
constexpr DirectoryValue kData{L"FrameworkDataDirectory", paths::kDefaultDataDir};

/// An element without text names no directory: taken at its word, it would let the agent's files begin at the root.
bool bBlank(const std::wstring& text) {
  return text.find_first_not_of(L" \t\r\n") == std::wstring::npos;
}

std::wstring valueIn(const Result<ConfigFile>& file, const DirectoryValue& value) {
  // What cannot be read gives the directories of an agent that was never moved.
  const std::wstring text = file ? file.value().firstTextOrEmpty(value.element) : std::wstring();
  return bBlank(text) ? kelt::base::toWide(value.fallback) : text;
}

class FileConfiguration final : public IConfiguration {
 public:
  void SetConfigurationDirectory(const std::wstring& directory) override {
    m_directory = kelt::base::toUtf8(directory);
  }

  [[nodiscard]] std::wstring GetAgentBinDirectory() const override { return valueOf(kBin); }
  [[nodiscard]] std::wstring GetFrameworkDataDirectory() const override { return valueOf(kData); }

  [[nodiscard]] Result<ConfigFile> load() const { return ConfigDirectory(m_directory).loadAgent(); }

 private:
  /// The value in the file as it is now; nothing of it is kept.
  [[nodiscard]] std::wstring valueOf(const DirectoryValue& value) const {
    const auto file = load();
    if (!file) kelt::platform::logRefusal(file.error());
    return valueIn(file, value);
  }

  std::string m_directory = paths::kConfigDir;
};

FileConfiguration& theConfiguration() {
  static FileConfiguration configuration;
  return configuration;
}

}  // namespace

IConfiguration& IConfiguration::GetConfiguration() {
  return theConfiguration();
}

AgentDirectories directoriesIn(const Result<ConfigFile>& file) {
  return {valueIn(file, kBin), valueIn(file, kData)};
}

}  // namespace quorvane_com::orv::configuration

namespace kelt::platform {

std::wstring frameworkDataDirectory() {
  namespace configuration = quorvane_com::orv::configuration;
  // Past valueOf, which would log a refusal, and so ask for this directory again.
  return configuration::valueIn(configuration::theConfiguration().load(), configuration::kData);
}

}  // namespace kelt::platform
