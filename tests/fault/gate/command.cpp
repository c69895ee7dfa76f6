#include "fault/gate/command.h"

#include <array>
#include <filesystem>

#include "unit/keys/registry_text.h"
#include "unit/provision/package.h"

namespace kelt::tests::gate {
namespace {

namespace fs = std::filesystem;

const std::string kInstall = "/opt/Quorvane/orv";
const std::string kScratch = kInstall + "/scratch";
const std::string kKeyStore = kScratch + "/keystore";
const std::string kUpdate = kScratch + "/update";
const std::string kInstalledSiteList = kScratch + "/etc/SiteList.xml";
const std::string kSource = "/tmp/source";
const std::string kPassword = "kelt-gate canary 4711";
constexpr mode_t kSecret = 0600;

struct Keys {
  std::string public2048, secret2048, public1024, secret1024;
};

Keys keysOf(const std::string& sources) {
  const auto key = [&](const char* name) { return readFile(sources + "/tests/data/keys/" + name); };
  return {key("rsa2048.spki.der"), key("rsa2048.pkcs8.der"), key("rsa1024.spki.der"), key("rsa1024.pkcs8.der")};
}

std::string siteListOf(const std::string& site) {
  return "<?xml version=\"1.0\"?>\n<ns:SiteLists xmlns:ns=\"urn:site-list\" Type=\"Client\">\n"
         "  <SiteList Default=\"1\" Name=\"Server\" FipsMode=\"0\">\n"
         "    <SpipeSite Type=\"master\" Name=\"" +
         site +
         "\" Order=\"1\" ServerIP=\"192.0.2.10\" ServerName=\"zentor.example\" Port=\"8443\"/>\n"
         "  </SiteList>\n</ns:SiteLists>\n";
}

std::string replaced(std::string text, const std::string& old, const std::string& fresh) {
  for (std::size_t at = text.find(old); at != std::string::npos; at = text.find(old, at + fresh.size()))
    text.replace(at, old.size(), fresh);
  return text;
}

void putAll(Tree& tree, const std::string& directory, const Tree& files) {
  for (const auto& [name, entry] : files)
    put(tree, directory + "/" + name, entry.content, entry.mode);
}

/// The five key files as a source directory holds them.
Tree keyFiles(const Keys& keys) {
  Tree files;
  files["sr2048pubkey.bin"] = {'f', 0644, keys.public2048};
  files["req2048seckey.bin"] = {'f', kSecret, keys.secret2048};
  files["srpubkey.bin"] = {'f', 0644, keys.public1024};
  files["reqseckey.bin"] = {'f', kSecret, keys.secret1024};
  files["agentfipsmode"] = {'f', 0644, "0"};
  return files;
}

/// What a switch may leave of key files: copies in the installation that the import has not taken in.
void allowCopies(Command& command, const Tree& files) {
  for (const auto& [name, entry] : files)
    command.between[kInstall + "/" + name].push_back(entry);
}

/// An agent that has a pair of its own, in the size that it used when it was not managed.
void putKeyStore(Tree& tree, const Keys& keys) {
  putDirectory(tree, kKeyStore, 0700);
  put(tree, kKeyStore + "/agent-public.der", keys.public1024, kSecret);
  put(tree, kKeyStore + "/agent-secret.der", keys.secret1024, kSecret);
  put(tree, kKeyStore + "/keyconf.ini", "mode=2\nkeysize=0\n", kSecret);
}

void putCaches(Tree& tree) {
  put(tree, kScratch + "/ServerSiteList.xml", "cached");
  put(tree, kScratch + "/etc/sitecache.bin", "cached");
}

Command managed(const std::string& name, const Tree& device, const Keys& keys, const std::string& site) {
  Command command{name, {"-m", "-d", kSource}, device, Agent::kRunsOn, kSource, false, {}, {}, {}};
  const Tree files = keyFiles(keys);
  putAll(command.first, kSource, files);
  put(command.first, kSource + "/SiteList.xml", siteListOf(site));
  putCaches(command.first);
  allowCopies(command, files);
  return command;
}

/// With the files that an administrator has by hand: three, of the new size only.
Command managedUtf8(const Tree& device, const Keys& keys) {
  Command command = managed("managed-utf8", device, keys, "Zentor M\xc3\xa1laga");
  putKeyStore(command.first, keys);
  for (const char* name : {"srpubkey.bin", "reqseckey.bin"}) {
    command.first.erase(kSource + "/" + name);
    // The check makes them, empty.
    command.between[kSource + "/" + name] = {{'f', kSecret, ""}};
    command.between[kInstall + "/" + name] = {{'f', kSecret, ""}};
  }
  return command;
}

Command provisioned(const Tree& device, const Keys& keys, std::string& reply) {
  Command command = managed("managed-provisioned", device, keys, "Zentor M\xc3\xa1laga");
  command.arguments = {"-m", "-d",    kSource, "-z",     "-e", std::string("127.0.0.1:") + kPort,
                       "-U", "admin", "-P",    kPassword};
  command.bProvisions = true;
  std::vector<std::pair<std::string, std::string>> fetched;
  const std::string siteList = command.first[kSource + "/SiteList.xml"].content;
  for (const auto& [name, entry] : keyFiles(keys)) {
    command.first.erase(kSource + "/" + name);
    if (name != "agentfipsmode") fetched.emplace_back(name, entry.content);
    command.between[kSource + "/" + name] = {{'f', kSecret, entry.content}};
    command.between[kInstall + "/" + name] = {{'f', kSecret, entry.content}};
  }
  fetched.emplace_back("sitelist.xml", siteList);
  command.first.erase(kSource + "/SiteList.xml");
  const std::string archive = zipOf(fetched);
  command.between[kSource + "/SiteList.xml"] = {{'f', kSecret, siteList}};
  command.between[kSource + "/sitelist.xml"] = {{'f', kSecret, siteList}};
  command.between[kSource + "/keltconfig_keystemp.zip"] = {{'f', kSecret, archive}};
  put(command.first, kSource + "/operators-own.txt", "not to be touched");
  reply = replyWith(archive);
  return command;
}

Command unmanaged(const Tree& device, const Keys& keys) {
  Command command{"unmanaged", {"-u"}, device, Agent::kRunsOn, "", false, {}, {}, {}};
  put(command.first, kInstalledSiteList, siteListOf("Zentor"));
  put(command.first, kInstall + "/srpubkey.bin", keys.public1024);
  put(command.first, kInstall + "/reqseckey.bin", keys.secret1024, kSecret);
  putCaches(command.first);
  putKeyStore(command.first, keys);
  return command;
}

Command importedFromFiles(const Tree& device, const Keys& keys) {
  Command command{"keys-from-files", {"-k"}, device, Agent::kRunsOn, "", false, {}, {}, {}};
  putAll(command.first, kUpdate, keyFiles(keys));
  putKeyStore(command.first, keys);
  return command;
}

/// The registry decides which rules the import goes by, and is emptied by it.
Command importedFromRegistry(const Tree& device, const Keys& keys) {
  Command command{"keys-from-registry", {"-k"}, device, Agent::kRunsOn, "", false, {}, {}, {}};
  putAll(command.first, kUpdate, keyFiles(keys));
  put(command.first, kScratch + "/registry.ini",
      kAgentSection + serverLines(keys.public1024, keys.secret1024) + agentLines(keys.public1024, keys.secret1024) +
          "AgentGUID=hex:01,02\n",
      kSecret);
  putKeyStore(command.first, keys);
  return command;
}

/// Each property is a write of its own, and one that fails does not keep the others from being written.
Command customProperties(const Tree& device) {
  Command command{"custom-properties", {}, device, Agent::kUntouched, "", false, {}, {}, {}};
  const std::string file = kScratch + "/CustomProps.xml";
  put(command.first, file, "<CustomProperties><CustomProps1 value=\"before\"/></CustomProperties>");
  command.mayBeAbsent = {file};
  // What the first property is put into.
  command.between[file] = {{'f', 0644, "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<CustomProperties/>\n"}};
  constexpr unsigned kCount = 4;
  for (unsigned chosen = 1; chosen < 1U << kCount; ++chosen) {
    std::vector<std::string> arguments;
    for (unsigned n = 0; n < kCount; ++n) {
      if ((chosen >> n & 1U) == 0) continue;
      arguments.push_back("-CustomProps" + std::to_string(n + 1));
      arguments.push_back("value " + std::to_string(n + 1));
    }
    command.variants.push_back(arguments);
  }
  command.arguments = command.variants.back();
  command.variants.pop_back();
  return command;
}

Command plain(const std::string& name, std::vector<std::string> arguments, Tree device, Agent agent) {
  return {name, std::move(arguments), std::move(device), agent, "", false, {}, {}, {}};
}

}  // namespace

Tree deviceWithAgent(const std::string& sources, const std::string& agent, bool bRunning) {
  Tree tree;
  for (const auto& item : fs::recursive_directory_iterator(sources + "/device/root")) {
    const std::string path = "/" + item.path().lexically_relative(sources + "/device/root").string();
    if (item.is_regular_file()) put(tree, path, replaced(readFile(item.path()), kInstall + "/bin/agent", agent));
  }
  for (const char* directory : {"/logs", "/update"})
    putDirectory(tree, kScratch + directory);
  putDirectory(tree, kAgentDirectory);
  if (!bRunning) return tree;
  for (const char* name : {"/running", "/plugin-scanner", "/plugin-firewall"})
    put(tree, kAgentDirectory + std::string(name), "");
  return tree;
}

Suite keltconfigSuite(const std::string& sources, const std::string& agent) {
  const Keys keys = keysOf(sources);
  const Tree running = deviceWithAgent(sources, agent, true);
  Suite suite;
  suite.secrets.addText(kPassword);
  suite.secrets.addKey(keys.secret2048);
  suite.secrets.addKey(keys.secret1024);
  suite.commands = {
      managedUtf8(running, keys),
      managed("managed-latin1", running, keys, "Zentor M\xe1laga"),
      provisioned(running, keys, suite.reply),
      unmanaged(running, keys),
      importedFromFiles(running, keys),
      importedFromRegistry(running, keys),
      customProperties(running),
      plain("start", {"-start"}, deviceWithAgent(sources, agent, false), Agent::kIsStarted),
      plain("stop", {"-stop"}, running, Agent::kIsStopped),
      plain("check", {"-checkHF", "5.7.8", "-conflictList", "5.7.8-HF2001"}, running, Agent::kUntouched),
      plain("version", {"-version"}, running, Agent::kUntouched),
  };
  return suite;
}

}  // namespace kelt::tests::gate
