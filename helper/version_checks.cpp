// Whether a hotfix fits the installed agent. Texts stay wide: they are compared with what the command line says, and a
// limit of their length counts wide characters.

#include <algorithm>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "base/console.h"
#include "helper/agent_paths.h"
#include "helper/messages.h"
#include "helper/unix_command_line_helper.h"
#include "platform/config_directory.h"
#include "platform/refusals.h"

namespace kelt::helper {
namespace {

/// No agent version is longer.
constexpr std::size_t kMaxVersionLength = 33;

/// The part of "<agent version>-<hotfix>" before the last hyphen; all of it where there is none.
std::wstring_view requiredVersion(std::wstring_view argument) {
  return argument.substr(0, argument.rfind(L'-'));
}

bool bFits(std::wstring_view argument, std::wstring_view installed) {
  const std::wstring_view required = requiredVersion(argument);
  // A longer one counts as improper, even where the agent's file says the same.
  return required.size() <= kMaxVersionLength && required == installed;
}

/// The names in a list separated by commas, as views into it; empty ones are no names.
std::vector<std::wstring_view> namesIn(std::wstring_view list) {
  std::vector<std::wstring_view> names;
  while (!list.empty()) {
    const std::size_t end = std::min(list.find(L','), list.size());
    if (end > 0) names.push_back(list.substr(0, end));
    list.remove_prefix(std::min(end + 1, list.size()));
  }
  return names;
}

bool bContains(const std::vector<std::wstring_view>& names, std::wstring_view name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

/// Whether a name stands in both lists. The lists may be long, and each pair is too many to look at.
bool bMeet(const std::vector<std::wstring_view>& installed, const std::vector<std::wstring_view>& conflicting) {
  const std::unordered_set<std::wstring_view> known(installed.begin(), installed.end());
  return std::any_of(conflicting.begin(), conflicting.end(),
                     [&](std::wstring_view name) { return known.find(name) != known.end(); });
}

/// The agent's configuration, whoever may write to it: it is asked what is installed and decides nothing that root
/// does.
Result<platform::ConfigFile> loadAgentConfig() {
  platform::ConfigDirectory directory(paths::kConfigDir);
  auto config = directory.loadAgent(platform::ConfigUse::kInforms);
  if (!config) platform::logRefusal(config.error());
  return config;
}

}  // namespace

bool unixCommandLineHelper::CheckVersion(std::wstring& version) {
  m_versionString = version;  // CheckConflictList looks for it, also when this check fails
  const auto config = loadAgentConfig();
  if (!config) return false;
  const bool bProper = bFits(version, config.value().firstTextOrEmpty(L"Version"));
  base::printLine(bProper ? messages::kProperVersion : messages::kImproperVersion);
  return bProper;
}

bool unixCommandLineHelper::CheckConflictList(std::wstring& conflictList) {
  const auto config = loadAgentConfig();
  if (!config) return false;

  // The hotfix itself comes first: where it is installed, its conflicts are not looked at.
  const std::wstring hotfixes = config.value().firstTextOrEmpty(L"HotFixVersions");
  const std::vector<std::wstring_view> installed = namesIn(hotfixes);
  if (bContains(installed, m_versionString)) {
    base::printLine(messages::kHotfixExists);
    return false;
  }
  const bool bConflict = bMeet(installed, namesIn(conflictList));
  if (bConflict) base::printLine(messages::kConflictMatch);
  base::printLine(bConflict ? messages::kConflictFound : messages::kConflictNotFound);
  return !bConflict;
}

}  // namespace kelt::helper
