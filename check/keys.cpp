// The key store: its keys, the hash of the server's, and the recorded setting.

#include <array>
#include <cerrno>
#include <sys/stat.h>

#include "check/device.h"
#include "check/look.h"

#include "base/utf.h"
#include "helper/agent_paths.h"
#include "keys/registry_keys.h"
#include "platform/registry.h"

namespace kelt::check {
namespace {

using base::SecretBytes;
using platform::KeyFacts;
using platform::KeyInspector;
using quorvane_com::QV::crypto::KeySize;
using quorvane_com::QV::crypto::KeyType;
using quorvane_com::QV::crypto::Mode;

constexpr const char* kSwitchAgain = "Switch the agent to managed mode again, with the keys of its server.";
constexpr const char* kMendStore =
    "Remove what is not root's own there, after a look at who put it there, and switch the agent to managed mode "
    "again.";

/// One file of the key store.
struct Stored {
  const char* id;
  KeyType type;
  const char* name;
  bool bSecret;
  bool bNeeded;  ///< by a managed agent; it makes its own pair itself
};

constexpr std::array kStored{
    Stored{"key.server", KeyType::kServerPublic, "public key of the server", false, true},
    Stored{"key.request", KeyType::kServerRequestSecret, "secret key for requests", true, true},
    Stored{"key.agent-public", KeyType::kAgentPublic, "public key of the agent", false, false},
    Stored{"key.agent-secret", KeyType::kAgentSecret, "secret key of the agent", true, false},
};

/// The directory of the keys: not there, not to be trusted, open to others, or fine.
void checkStore(const Device& device, Findings& findings) {
  const Status usable = platform::inspectKeyStore(device.keyStore, kAgentUser);
  if (!usable && usable.error().kind == ErrorKind::kNotFound) {
    if (!device.bManaged)
      return findings.ok("key.store", "There is no key store yet; the first import makes " + device.keyStore);
    return findings.problem("key.store", "The agent is managed, and has no key store " + device.keyStore, kSwitchAgain);
  }
  if (!usable) return findings.failure(State::kProblem, "key.store", usable.error(), kMendStore);
  // The tool narrows it by itself at the next import, and does not refuse it.
  const auto info = lookAt(device.keyStore);
  if (info && (info.value().st_mode & 077U) != 0)
    return findings.warning("key.store", "Others than root have rights to the key store " + device.keyStore,
                            "Take them away: chmod 700 " + device.keyStore + ".");
  findings.ok("key.store", "The key store " + device.keyStore + " is closed to others");
}

/// Crypto mode and key size, as the agent has them recorded.
void checkRecord(Device& device, Findings& findings) {
  constexpr const char* kId = "key.setting";
  const auto record = platform::inspectKeyRecord(device.keyStore, kAgentUser);
  if (record) {
    device.record = record.value();
    const char* mode = record.value().mode == Mode::kFips ? "FIPS" : "non-FIPS";
    const char* size = record.value().keySize == KeySize::kHigher ? "2048" : "1024";
    findings.takeFact("crypto_mode", mode);
    findings.takeFact("key_size", size);
    return findings.ok(kId, std::string("Recorded are ") + mode + " mode and keys of " + size + " bits");
  }
  const Error& error = record.error();
  if (error.kind != ErrorKind::kNotFound) {
    // A record that does not read is replaced by the next import; what is no file of root's is not.
    const bool bReplaced = error.kind == ErrorKind::kMalformed || error.kind == ErrorKind::kTooLarge;
    return findings.failure(bReplaced ? State::kWarning : State::kProblem, kId, error,
                            bReplaced ? kSwitchAgain : kMendStore);
  }
  if (!device.bManaged) return findings.ok(kId, "No crypto mode and key size are recorded; the first import does that");
  findings.warning(kId, "No crypto mode and key size are recorded, so that non-FIPS mode and 1024 bits are assumed",
                   kSwitchAgain);
}

/// A key that is there, or why it is not.
struct Read {
  const Stored& stored;
  Result<SecretBytes> bytes;
};

/// A managed agent needs the keys of its server; without the public one it trusts nobody.
void tellMissing(const Device& device, const Stored& stored, Findings& findings) {
  const std::string fact = std::string("There is no ") + stored.name + " in the key store";
  if (!device.bManaged || !stored.bNeeded) return findings.ok(stored.id, fact);
  findings.put(stored.type == KeyType::kServerPublic ? State::kProblem : State::kWarning, stored.id,
               fact + ", although a server manages the agent", kSwitchAgain);
}

/// Whether the recorded hash is that of the stored key. Without a server it has no meaning, and is no problem.
void checkHash(const Device& device, const std::string& sha256, Findings& findings) {
  if (!device.agentConfig)
    return findings.unknown("key.hash", "The agent's configuration could not be read, so that no hash can be compared",
                            "Put the configuration right first; see config.file.");
  const std::string recorded = base::toUtf8(device.agentConfig->firstTextOrEmpty(L"binsphash"));
  if (recorded == sha256)
    return findings.ok("key.hash", "The hash of the server's key is recorded in the agent's configuration");
  const std::string fact = recorded.empty()
                               ? "The hash of the server's key is not recorded as binsphash in the agent's "
                                 "configuration"
                               : "binsphash in the agent's configuration is not the hash of the server's "
                                 "key: " +
                                     recorded + " instead of " + sha256;
  if (!device.bManaged && recorded.empty()) return findings.ok("key.hash", fact);
  findings.put(device.bManaged ? State::kProblem : State::kWarning, "key.hash", fact, kSwitchAgain);
}

/// A key that is one.
void tellKey(const Device& device, const Stored& stored, const KeyFacts& key, Findings& findings) {
  const std::string hash = key.sha256.empty() ? std::string() : ", SHA-256 " + key.sha256;
  findings.ok(stored.id, std::string("The ") + stored.name + " has " + std::to_string(key.bits) + " bits" + hash);
  if (stored.type != KeyType::kServerPublic) return;
  findings.takeFact("server_key_bits", std::to_string(key.bits));
  findings.takeFact("server_key_sha256", key.sha256);
  checkHash(device, key.sha256, findings);
}

/// What the crypto library makes of the bytes, which is what an import or the agent would make of them.
void checkKey(const Device& device, const Read& read, const KeyInspector& inspector, Findings& findings) {
  const Stored& stored = read.stored;
  const auto facts = stored.bSecret ? inspector.secretKey(read.bytes.value()) : inspector.publicKey(read.bytes.value());
  if (facts) return tellKey(device, stored, facts.value(), findings);
  Error error = facts.error();
  error.message.insert(0, platform::storedKeyPath(device.keyStore, stored.type) + ": ");
  const bool bServer = stored.type == KeyType::kServerPublic;
  findings.failure(bServer && device.bManaged ? State::kProblem : State::kWarning, stored.id, error, kSwitchAgain);
}

/// In FIPS mode the tool does without the provider; whoever has to have it wants to know.
void checkFips(const KeyInspector& inspector, Findings& findings) {
  if (inspector.bFipsProvider()) return findings.ok("key.fips", "The FIPS provider of OpenSSL is there and in order");
  findings.warning("key.fips",
                   "The agent runs in FIPS mode, and this system has no FIPS provider of OpenSSL that passes its "
                   "self-test; the default one is used, for RSA and SHA-256 only",
                   "Install OpenSSL's FIPS provider and run openssl fipsinstall, if that is required here.");
}

}  // namespace

void checkKeys(Device& device, Findings& findings) {
  findings.begin("key.store", {});
  if (!device.bDirectoriesKnown)
    return findings.unknown("key.store", "The key store is usually " + device.keyStore + "; it may be another",
                            kLookAsRoot);
  checkStore(device, findings);
  checkRecord(device, findings);
  // All are read before the library is loaded, which costs more than all of this and is spared where there is none.
  std::vector<Read> there;
  for (const Stored& stored : kStored) {
    auto bytes = platform::inspectStoredKey(device.keyStore, stored.type, kAgentUser);
    if (bytes) {
      there.push_back({stored, std::move(bytes)});
    } else if (bytes.error().kind == ErrorKind::kNotFound) {
      tellMissing(device, stored, findings);
    } else {
      findings.failure(State::kProblem, stored.id, bytes.error(), kMendStore);
    }
  }
  // In FIPS mode it is loaded in any case, to ask for the provider.
  const bool bFips = device.record && device.record->mode == Mode::kFips;
  device.bKeysStored = !there.empty();
  if (there.empty() && !bFips) return;
  findings.begin("key.server", {});
  const auto inspector = KeyInspector::start(bFips);
  if (!inspector)
    return findings.unknown("key.server", "Keys cannot be looked at: " + inspector.error().message,
                            "Put the installation right first; see install.crypto.");
  for (const Read& read : there)
    checkKey(device, read, inspector.value(), findings);
  if (bFips) checkFips(inspector.value(), findings);
}

void checkRegistry(Findings& findings) {
  constexpr const char* kId = "key.registry";
  const std::string path = helper::paths::kRegistryFile;
  const auto info = lookAt(path);
  if (!info && info.error().kind == ErrorKind::kNotFound)
    return findings.ok(kId, "No registry file is there, and so no keys of an earlier agent");
  InitializeRegistry(base::toWide(path).c_str());
  void* key = nullptr;
  const int status = RegOpenKey(HKEY_LOCAL_MACHINE, keys::kAgentKey, &key);
  // The registry's interface gives statuses only; these two are what tells a file that cannot be read.
  if (status == kRegistryAccessDenied && bNotSeen(EACCES))
    return findings.unknown(kId, path + " cannot be read by this user", kLookAsRoot);
  if (status == kRegistryAccessDenied || status == kRegistryBadData)
    return findings.warning(kId, path + " cannot be read as a registry file, so that no keys are taken from it",
                            "Put the file right, or remove it.");
  // Closing writes the file only where values were deleted, which none was.
  if (status == kRegistrySuccess) RegCloseKey(key);
  // Asked for as the import asks, so that half a pair counts for neither.
  AnObjectBuffer<unsigned char> pub;
  AnObjectBuffer<unsigned char> sec;
  const bool bServer = keys::getServerKeys(pub, sec);
  const bool bAgent = keys::getAgentKeys(pub, sec);
  if (!bServer && !bAgent) return findings.ok(kId, path + " holds no keys that wait for an import");
  findings.warning(
      kId,
      path + " holds " + (bServer ? "keys of the server" : "keys of the agent") + " that wait for an import" +
          (bServer ? ", so that the next one takes non-FIPS mode, 1024 bits and the legacy key files" : ""),
      "Switch the agent to managed mode, or import the keys of an update with keltconfig -k.");
}

}  // namespace kelt::check
