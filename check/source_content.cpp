// What the switch and the import make of the files of a source directory.

#include <sys/stat.h>

#include "check/look.h"
#include "check/source.h"

#include "base/file_place.h"
#include "base/file_read.h"
#include "base/utf.h"
#include "helper/agent_paths.h"
#include "helper/unix_command_line_helper.h"
#include "keys/import_plan.h"
#include "keys/key_files.h"
#include "keys/registry_keys.h"
#include "modes/config_values.h"
#include "modes/site_list.h"

namespace kelt::check {
namespace {

namespace paths = helper::paths;
using modes::SiteListContent;
using platform::KeyInspector;
using quorvane_com::QV::crypto::KeySize;
using quorvane_com::QV::crypto::Mode;

constexpr const char* kListId = "source.site-list";
constexpr const char* kMendList = "Get the site list of the server again, and put it there unchanged.";
constexpr const char* kMendKeys = "Get the key files of the server again, and put them there unchanged.";

/// Of a site list.
std::string rootName() {
  return base::toUtf8(modes::kSiteListRoot);
}

/// Loads the site list as it would be once it is converted. The errors are for people.
Status loadConverted(const std::string& path, AnXml& siteList) {
  const auto text = base::readText(path);
  if (!text) return text.error();
  std::string utf8;
  // As the switch does it, so up to the first zero byte.
  if (!helper::unixCommandLineHelper().ConvertToUtf8(text.value().c_str(), utf8))
    return Error{ErrorKind::kSystem, 0, "this system cannot convert it from ISO-8859-1"};
  return siteList.load({reinterpret_cast<const unsigned char*>(utf8.data()), utf8.size()}, rootName());
}

/// Why a converted site list could not take the place of the one at `path`; null where it could.
const char* whyNotReplaced(const std::string& path) {
  const auto info = lookAt(path, true);
  if (info && S_ISLNK(info.value().st_mode)) return "it is a symbolic link";
  if (whyFixed(base::directoryOf(path)) != nullptr || whyFixed(path) != nullptr)
    return "it is read-only, or its directory";
  return nullptr;
}

/// Loads it as the switch would; nothing is left to say where that is refused.
bool bLoaded(const std::string& path, AnXml& siteList, Findings& findings) {
  const Status asItIs = siteList.load(path, rootName());
  if (asItIs) return true;
  const bool bUnseen = bNotSeen(asItIs.error());
  const Status converted = bUnseen ? asItIs : loadConverted(path, siteList);
  const char* why = converted ? whyNotReplaced(path) : nullptr;
  if (!converted || why != nullptr) {
    Error error = asItIs.error();
    if (error.message.find(path) == std::string::npos) error.message.insert(0, path + ": ");
    if (why != nullptr) error.message.append("; it cannot be converted from ISO-8859-1, as ").append(why);
    findings.failure(State::kProblem, kListId, error, kMendList);
    return false;
  }
  findings.warning(
      "source.conversion",
      path + " does not load and would be taken for ISO-8859-1 and rewritten as UTF-8 (" + asItIs.error().message + ")",
      "Put it there in UTF-8, or with the declaration of its encoding.");
  return true;
}

/// What a site list that loads says; without a server in it the switch refuses it.
void tellServers(const std::string& path, AnXml& siteList, Findings& findings) {
  const SiteListContent content = modes::contentOf(siteList);
  if (content == SiteListContent::kNoSites)
    return findings.problem(kListId, path + " has no element SiteList in ns:SiteLists", kMendList);
  if (content == SiteListContent::kNoServer)
    return findings.problem(kListId, path + " names no server: no SpipeSite with the attribute ServerIP", kMendList);
  std::string servers;
  for (const std::string& server : modes::serversOf(siteList))
    servers.append(servers.empty() ? "" : ", ").append(server);
  findings.ok(kListId, path + " names " + servers);
}

/// Whether the import would count the file: it is there and not empty.
bool bFilled(const std::string& path) {
  return modes::bFileExists(base::toWide(path));
}

/// What the import decides by, taken from the source, where the tool takes it from the copies in the installation.
keys::ImportFacts factsOf(const Device& device, const keys::KeyFiles& files) {
  AnObjectBuffer<unsigned char> pub;
  AnObjectBuffer<unsigned char> sec;
  keys::ImportFacts facts;
  facts.bMarkerCounts = !keys::getServerKeys(pub, sec) && bFilled(files.fipsMarker);
  facts.bMarkerSaysFips = facts.bMarkerCounts && keys::bMarkerSaysFips(files.fipsMarker);
  facts.bServerKey2048Exists = bFilled(files.serverKey2048);
  // Without a record, the agent's first setting is meant, as the import has it.
  if (device.record) facts.current = {device.record->mode, device.record->keySize};
  return facts;
}

/// In bits, as people say it.
unsigned bitsOf(KeySize size) {
  return size == KeySize::kHigher ? 2048 : 1024;
}

/// The decision of the import, made by its own function.
void tellPlan(const keys::ImportFacts& facts, const keys::ImportPlan& plan, Findings& findings) {
  std::string fact = std::string("The import would choose ") +
                     (plan.setting.mode == Mode::kFips ? "FIPS" : "non-FIPS") + " mode and keys of " +
                     std::to_string(bitsOf(plan.setting.keySize)) + " bits, from the files of " +
                     (plan.bLegacyNames ? "1024" : "2048") + " bits";
  if (plan.setting.keySize != facts.current.keySize) fact += "; the agent would make its own keys anew";
  findings.ok("source.import", fact);
}

/// What a key file holds, beside the size that goes with the plan. The import takes any size, so that is a warning.
void tellKey(const char* id, const std::string& path, const Result<platform::KeyFacts>& key, unsigned wanted,
             State whenBroken, Findings& findings) {
  if (!key) {
    Error error = key.error();
    error.message.insert(0, path + ": ");
    return findings.failure(whenBroken, id, error, kMendKeys);
  }
  const std::string bits = std::to_string(key.value().bits) + " bits";
  if (key.value().bits != wanted)
    return findings.warning(id, path + " is a key of " + bits + ", where " + std::to_string(wanted) + " are chosen",
                            kMendKeys);
  const std::string hash = key.value().sha256.empty() ? "" : ", SHA-256 " + key.value().sha256;
  findings.ok(id, path + " is a key of " + bits + hash);
}

/// `take` gives what `inspector` says of the content of the file.
template <typename Inspect>
void checkKeyFile(const char* id, const std::string& path, unsigned wanted, State whenBroken, Findings& findings,
                  Inspect inspect) {
  const auto content = base::readFile(path, platform::kMaxKeyFileSize);
  if (!content) return findings.failure(whenBroken, id, content.error(), kMendKeys);
  tellKey(id, path, inspect(content.value()), wanted, whenBroken, findings);
}

}  // namespace

void checkSourceSiteList(const std::string& directory, Findings& findings) {
  const std::string path = directory + paths::kSiteList;
  AnXml siteList;
  if (bLoaded(path, siteList, findings)) tellServers(path, siteList, findings);
}

void checkSourceKeys(const Device& device, const std::string& directory, Findings& findings) {
  const keys::KeyFiles files = keys::keyFilesIn(directory);
  const keys::ImportFacts facts = factsOf(device, files);
  const keys::ImportPlan plan = keys::planImport(facts);
  tellPlan(facts, plan, findings);
  const std::string& publicFile = plan.bLegacyNames ? files.serverKey : files.serverKey2048;
  const std::string& secretFile = plan.bLegacyNames ? files.requestKey : files.requestKey2048;
  if (!bFilled(publicFile))
    return findings.problem("source.server-key",
                            publicFile +
                                ", which the import would take, is not there "
                                "or empty",
                            kMendKeys);
  // In the mode of the plan: in FIPS mode some keys are refused.
  const auto inspector = KeyInspector::start(plan.setting.mode == Mode::kFips);
  if (!inspector)
    return findings.unknown("source.server-key", "Keys cannot be looked at: " + inspector.error().message,
                            "Put the installation right first; see install.crypto.");
  const unsigned wanted = bitsOf(plan.setting.keySize);
  checkKeyFile("source.server-key", publicFile, wanted, State::kProblem, findings,
               [&](const auto& bytes) { return inspector.value().publicKey(bytes); });
  checkKeyFile("source.request-key", secretFile, wanted, State::kWarning, findings,
               [&](const auto& bytes) { return inspector.value().secretKey(bytes); });
}

}  // namespace kelt::check
