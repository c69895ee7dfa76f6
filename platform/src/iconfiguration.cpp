#include "platform/iconfiguration.h"

#include <dirent.h>
#include <memory>
#include <string_view>
#include <sys/stat.h>

#include "device_paths.h"

#include "base/utf.h"
#include "platform/anxml.h"

namespace quorvane_com::orv::configuration {
namespace {

namespace paths = kelt::platform::paths;

bool bDirectory(const std::string& path) {
  struct stat info {};
  return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

/// The agent's own configuration file: in the first product directory, in the order of the listing, that is the
/// agent's. Empty when there is none.
std::string configFileBelow(const std::string& directory) {
  const std::unique_ptr<DIR, int (*)(DIR*)> listing(::opendir(directory.c_str()), &::closedir);
  if (!listing) return {};
  while (const dirent* entry = ::readdir(listing.get())) {  // NOLINT(concurrency-mt-unsafe): a listing of our own
    const std::string product = directory + "/" + static_cast<const char*>(entry->d_name);
    const bool bAgent = std::string_view(entry->d_name).find(paths::kAgentMarker) != std::string_view::npos;
    if (bAgent && bDirectory(product)) return product + "/" + paths::kConfigFile;
  }
  return {};
}

bool bBlank(const std::wstring& text) {
  return text.find_first_not_of(L" \t\r\n") == std::wstring::npos;
}

class FileConfiguration final : public IConfiguration {
 public:
  void SetConfigurationDirectory(const std::wstring& directory) override {
    m_directory = kelt::base::toUtf8(directory);
  }

  [[nodiscard]] std::wstring GetAgentBinDirectory() const override {
    return textOrDefault(L"AgentBinDirectory", paths::kDefaultBinDir);
  }

  [[nodiscard]] std::wstring GetFrameworkDataDirectory() const override {
    return textOrDefault(L"FrameworkDataDirectory", paths::kDefaultDataDir);
  }

 private:
  [[nodiscard]] std::wstring textOrDefault(const wchar_t* element, const char* fallback) const {
    const std::wstring path = kelt::base::toWide(configFileBelow(m_directory));
    AnXml document;
    AString text;
    if (!document.useExistingFile(path.c_str(), L"Configuration", nullptr, nullptr))
      return kelt::base::toWide(fallback);
    const bool bThere = AnXmlNode(&document).tryGetChild(nullptr, element, nullptr, nullptr, nullptr, &text);
    return bThere && !bBlank(text.str()) ? text.str() : kelt::base::toWide(fallback);
  }

  std::string m_directory = paths::kConfigDir;
};

}  // namespace

IConfiguration& IConfiguration::GetConfiguration() {
  static FileConfiguration configuration;
  return configuration;
}

}  // namespace quorvane_com::orv::configuration
