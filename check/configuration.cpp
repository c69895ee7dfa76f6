// The configuration directory, and the files of the agent and of the products in it.

#include <algorithm>
#include <utility>
#include <vector>

#include "check/device.h"

#include "base/file_read.h"
#include "base/utf.h"
#include "helper/agent_paths.h"
#include "modes/config_values.h"
#include "platform/anxml.h"
#include "platform/config_directory.h"
#include "platform/iconfiguration.h"

namespace kelt::check {
namespace {

using platform::ConfigDirectory;
using platform::ConfigFile;

constexpr const char* kInstallAgent = "Install the agent.";
constexpr const char* kGiveToRoot =
    "Find out who has changed it; then make it a file (or a directory) of root's, as the directory above it has to be "
    "(chown root), and take the right to write from others (chmod o-w).";
constexpr const char* kMendFile = "Put the file right, or install the product it belongs to again.";
constexpr const char* kHashElement = "binsphash";

/// As text to build messages with.
std::string configDirectoryPath() {
  return helper::paths::kConfigDir;
}

/// Whether the tool would use it. Its own judgement, with its own reason.
void checkDirectory(const ConfigDirectory& directory, Findings& findings) {
  const Status usable = directory.usable();
  if (usable)
    return findings.ok("config.directory", configDirectoryPath() + " is root's, and others may not write to it");
  const bool bMissing = usable.error().kind == ErrorKind::kNotFound;
  findings.failure(State::kProblem, "config.directory", usable.error(), bMissing ? kInstallAgent : kGiveToRoot);
}

/// The names of the directories below the configuration directory.
struct Names {
  std::vector<std::string> agents;    ///< in the order of the system, whose first is the one that counts
  std::vector<std::string> products;  ///< sorted
  Status listed;                      ///< whether the system has told all of them
};

/// Reads the list to its end, and tells where the system broke it off.
Names namesIn(ConfigDirectory& directory, Findings& findings) {
  Names names;
  while (const auto name = directory.next())
    (ConfigDirectory::bAgent(*name) ? names.agents : names.products).push_back(*name);
  names.listed = directory.listed();
  if (!names.listed)
    findings.failure(State::kProblem, "config.list", names.listed.error(), "Check the file system of the directory.");
  // The system lists them in any order; two reports of one device should not differ by it.
  std::sort(names.products.begin(), names.products.end());
  return names;
}

void checkAgents(const Names& names, Findings& findings) {
  const std::string all = configDirectoryPath();
  const std::vector<std::string>& agents = names.agents;
  // Of a list that is not whole, nobody can say that the agent's is not there.
  if (agents.empty() && !names.listed) return;
  if (agents.empty())
    return findings.problem("config.agent", "No directory in " + all + " is the agent's", kInstallAgent);
  findings.ok("config.agent", "The agent's configuration is in " + all + "/" + agents.front());
  for (std::size_t i = 1; i < agents.size(); ++i)
    findings.warning("config.other-agent",
                     all + "/" + agents[i] + " is ignored, as " + agents.front() + " comes first in the directory",
                     "Remove the one that is not used.", agents[i]);
}

/// What to do about a configuration file that was refused, by the kind of refusal.
const char* remedyOf(const Error& error) {
  switch (error.kind) {
    case ErrorKind::kNotFound:
      return "Install the product again, or remove its directory.";
    case ErrorKind::kRefused:
      return kGiveToRoot;
    default:
      return kMendFile;
  }
}

/// Whether the agent's file was taken, and what it says of the agent.
void checkAgentFile(Device& device, const base::Result<ConfigFile>& file, Findings& findings) {
  if (!file) return findings.failure(State::kProblem, "config.file", file.error(), remedyOf(file.error()));
  findings.ok("config.file", device.agentConfigPath + " is trusted and well-formed");
  findings.takeFact("agent_version", base::toUtf8(file.value().firstTextOrEmpty(L"Version")));
  findings.takeFact("binsphash", base::toUtf8(file.value().firstTextOrEmpty(L"binsphash")));
}

/// A product whose file is refused loses its plug-in; the rest goes on.
void checkProducts(const std::vector<std::string>& products, const ConfigDirectory& directory, Device& device,
                   Findings& findings) {
  for (const std::string& name : products) {
    auto file = directory.load(name);
    const std::string path = directory.fileOf(name);
    if (file) {
      findings.ok("config.product", path + " is trusted and well-formed", name);
      device.products.push_back({name, std::move(file).value()});
    } else {
      findings.failure(State::kWarning, "config.product", file.error(), remedyOf(file.error()), name);
    }
  }
}

/// How often `part` stands in `text`, those that overlap included.
std::size_t countOf(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
    ++count;
  return count;
}

/// What the next switch would make of the file; empty where that loads and holds the hash.
std::string whyNotRecorded(const std::string& content) {
  // As long as the SHA-256 that would stand there, in hexadecimal digits.
  const std::string hash(64, '0');
  const auto updated = modes::withValue(content, kHashElement, hash);
  if (!updated) return "it has no <binsphash> and </binsphash> to put it between";
  AnXml document;
  const Status loaded =
      document.load({reinterpret_cast<const unsigned char*>(updated->data()), updated->size()}, "Configuration");
  return loaded ? std::string() : "the file would not load any more, " + loaded.error().message;
}

/// As text: the tool edits the file without reading it as XML, so tags in comments count as well.
bool bExactlyOnePlace(const std::string& content) {
  return countOf(content, "<binsphash>") == 1 && countOf(content, "</binsphash>") == 1 &&
         content.find("<binsphash>") < content.find("</binsphash>");
}

/// Whether the edit would put the hash where the agent reads it.
void checkHashContent(const Device& device, const std::string& content, Findings& findings) {
  constexpr const char* kId = "config.binsphash";
  constexpr const char* kRemedy = "Give the file exactly one element <binsphash></binsphash>, also within comments.";
  const std::string& path = device.agentConfigPath;
  // In a file that loads, the hash spoils nothing there; of one that is refused, that is told already.
  const bool bElement = !device.agentConfig || device.agentConfig->firstText(L"binsphash");
  if (bExactlyOnePlace(content) && bElement)
    return findings.ok(kId, "The hash of the server's key can be recorded in " + path);
  const std::string why = whyNotRecorded(content);
  const bool bSpoils = why.starts_with("the file would");
  const std::string fact = "The next switch could not record the hash of the server's key in " + path + ": " + why;
  if (!why.empty()) return findings.put(bSpoils ? State::kProblem : State::kWarning, kId, fact, kRemedy);
  findings.warning(kId, path + " does not have the tags of binsphash exactly once, in their order, as an element",
                   kRemedy);
}

/// The file is read again as text: the tool edits it so, and only up to a size.
void checkHashTags(const Device& device, Findings& findings) {
  const auto text = base::readText(device.agentConfigPath, modes::kMaxEditedConfig);
  // Up to a zero byte, where the tool's own reading ends.
  if (text) return checkHashContent(device, text.value().substr(0, text.value().find('\0')), findings);
  const bool bTooLarge = text.error().kind == ErrorKind::kTooLarge;
  Error error = text.error();
  if (bTooLarge) error.message += ", so that the next switch could not record the hash of the server's key in it";
  findings.failure(State::kWarning, "config.binsphash", error,
                   bTooLarge ? "Shorten the file, its comments for instance." : kMendFile);
}

/// The agent's two directories, as the configuration names them or as they are by default.
void findDirectories(Device& device, const base::Result<ConfigFile>& file) {
  const auto directories = quorvane_com::orv::configuration::directoriesIn(file);
  device.binDirectory = base::toUtf8(directories.bin);
  device.dataDirectory = base::toUtf8(directories.data);
  const bool bSlash = device.dataDirectory.ends_with('/');
  device.keyStore = device.dataDirectory + (bSlash ? "" : "/") + helper::paths::kKeyStore;
}

/// Where there is no agent, its usual directories are meant.
base::Result<ConfigFile> loadAgent(const Device& device, const Names& names, const ConfigDirectory& directory) {
  if (const auto usable = directory.usable(); !usable) return usable.error();
  if (device.agentName.empty() && !names.listed) return names.listed.error();
  // Without a message: checkAgents has told it.
  if (device.agentName.empty()) return base::Error{ErrorKind::kNotFound, 0, {}};
  return directory.load(device.agentName);
}

}  // namespace

void checkConfiguration(Device& device, Findings& findings) {
  findings.begin("config.directory", {});
  ConfigDirectory directory(configDirectoryPath());
  checkDirectory(directory, findings);
  // Of a directory that others may write to, the list is still told; nothing in it is used.
  const bool bOpen = directory.state() != ConfigDirectory::State::kInaccessible &&
                     directory.state() != ConfigDirectory::State::kUnreadable;
  const Names names = bOpen ? namesIn(directory, findings) : Names{};
  if (bOpen) checkAgents(names, findings);
  if (!names.agents.empty()) {
    device.agentName = names.agents.front();
    device.agentConfigPath = directory.fileOf(device.agentName);
    findings.takeFact("agent_directory", configDirectoryPath() + "/" + device.agentName);
  }
  auto agent = loadAgent(device, names, directory);
  // A file that is refused leaves the tool with the usual directories; only one that could not be seen may name
  // others.
  device.bDirectoriesKnown = agent.ok() || !bNotSeen(agent.error());
  findDirectories(device, agent);
  if (!device.agentName.empty() && directory.usable()) checkAgentFile(device, agent, findings);
  if (agent) device.agentConfig = std::move(agent).value();
  if (!device.agentName.empty()) checkHashTags(device, findings);
  if (directory.usable()) checkProducts(names.products, directory, device, findings);
}

}  // namespace kelt::check
