// The key import. Until the server's public key is in the key store and the setting that it is for is recorded, a
// failure ends it with key files and registry values as they were. From then on it goes through to the end, since
// everything that comes after can be repeated, and the key files are removed last: a run that was cut short is repeated
// from them.

#include <memory>

#include "helper/command_line_helper.h"
#include "keys/import_plan.h"
#include "keys/key_files.h"
#include "keys/registry_keys.h"
#include "modes/config_values.h"
#include "platform/crypto.h"
#include "platform/logger.h"

namespace kelt::keys {
namespace {

using quorvane_com::QV::crypto::CryptShim;
using quorvane_com::QV::crypto::CryptShimLogger;
using quorvane_com::QV::crypto::HashType;
using quorvane_com::QV::crypto::IHash;
using quorvane_com::QV::crypto::IKeyManagement;
using quorvane_com::QV::crypto::KeyConf;
using quorvane_com::QV::crypto::KeyType;
using quorvane_com::QV::crypto::Role;

struct DestroyKeyManager {
  void operator()(IKeyManagement* keys) const { CryptShim::destroy_key_manager_object(keys); }
};
struct DestroyHash {
  void operator()(IHash* hash) const { CryptShim::destroy_hash_object(hash); }
};
using KeyManager = std::unique_ptr<IKeyManagement, DestroyKeyManager>;
using Hash = std::unique_ptr<IHash, DestroyHash>;

void info(const wchar_t* text) {
  logInfo(L"keltcfg", text);
}
void error(const wchar_t* text) {
  logError(L"keltcfg", text);
}

/// Logs and gives the result of an import that ends here.
bool bFailed(const wchar_t* why) {
  error(why);
  return false;
}

CryptoSetting currentSetting(const KeyConf& conf) {
  CryptoSetting setting;
  if (!conf.getCryptoMode(setting.mode)) setting.mode = Mode::kNonFips;
  if (!conf.getCryptoKeySize(setting.keySize)) setting.keySize = KeySize::kLower;
  return setting;
}

bool bServerKeysInRegistry() {
  AnObjectBuffer<unsigned char> pub;
  AnObjectBuffer<unsigned char> sec;
  return getServerKeys(pub, sec);
}

ImportFacts gatherFacts(bool fromUpdateDir, const KeyFiles& files, const CryptoSetting& current) {
  ImportFacts facts;
  facts.fromUpdateDir = fromUpdateDir;
  facts.bMarkerCounts = !bServerKeysInRegistry() && modes::bFileExists(files.fipsMarker);
  facts.bMarkerSaysFips = facts.bMarkerCounts && bMarkerSaysFips(files.fipsMarker);
  facts.bServerKey2048Exists = modes::bFileExists(files.serverKey2048);
  facts.current = current;
  return facts;
}

/// Starts the crypto library anew in `mode`, unless the agent runs in FIPS mode already and stays there.
bool bReinitialized(Mode mode) {
  Mode running = Mode::kNonFips;
  if (!KeyConf().getCryptoMode(running)) running = Mode::kNonFips;
  if (mode == Mode::kFips && running == Mode::kFips) return true;
  info(L"Trying to re-initialize crypto libraries.");
  if (!CryptShim::instance()->deinitialize()) return bFailed(L"Unable to deinitialize cryptshim.");
  // The library keeps the logger for the life of the process.
  auto* const logger = new CryptShimLogger(logError, logInfo, nullptr, nullptr);
  CryptShim::configure(mode, Role::kDefault, logger, L"keltconfig.sig");
  if (!CryptShim::instance()->initialize()) return bFailed(L"Unable to re-initialize cryptshim with new mode.");
  info(L"Successfully re-initialized crypto libraries.");
  return true;
}

bool bCryptoReady(Mode mode) {
  try {
    return bReinitialized(mode);
  } catch (...) {
    return bFailed(L"Unable to configure crypto library");
  }
}

/// Imports the server's keys and records the setting that they are for.
bool bServerKeysImported(IKeyManagement& keys, const std::wstring& publicFile, const std::wstring& secretFile,
                         const CryptoSetting& setting, KeyConf& conf) {
  if (!keys.importKeyFromFile(KeyType::kServerPublic, publicFile)) {
    return bFailed(L"Failed to import the server public key");
  }
  if (!keys.importKeyFromFile(KeyType::kServerRequestSecret, secretFile)) {
    info(L"Failed to import the server private key, not treating as a failure");
  }
  // With the wrong setting the agent could not use the keys. The key files stay, for the import to be repeated.
  return conf.SetCryptoMode(setting.mode, setting.keySize) || bFailed(L"Unable to record the crypto mode and key size");
}

/// Imports the agent's own pair from the registry emulation, where it holds one.
void importAgentKeys(IKeyManagement& keys) {
  AnObjectBuffer<unsigned char> pub;
  AnObjectBuffer<unsigned char> sec;
  if (!getAgentKeys(pub, sec)) return;
  const bool bImported = keys.importKey(KeyType::kAgentPublic, pub.data(), pub.length()) &&
                         keys.importKey(KeyType::kAgentSecret, sec.data(), sec.length());
  if (!bImported) error(L"Failed to import the agent keys");
}

/// Records the hash of the server's public key in the agent's configuration.
void recordServerKeyHash(IKeyManagement& keys, IHash& hash) {
  ABuffer key;
  ABuffer digest;
  if (!keys.exportKey(KeyType::kServerPublic, key) || !hash.hash(key, digest)) return;
  if (!modes::bSetServerPublicKeyHashInfo(hexDigits(digest))) {
    error(L"Unable to set the public key hash information in the registry");
  }
}

/// One import, with what is known once the files are chosen.
struct Import {
  bool fromUpdateDir;
  CryptoSetting current;
  CryptoSetting chosen;
  std::wstring publicFile;
  std::wstring secretFile;
};

Import choose(bool fromUpdateDir, const KeyFiles& files, const CryptoSetting& current) {
  const ImportPlan plan = planImport(gatherFacts(fromUpdateDir, files, current));
  Import import{fromUpdateDir, current, plan.setting, files.serverKey2048, files.requestKey2048};
  if (plan.bLegacyNames) {
    import.publicFile = files.serverKey;
    import.secretFile = files.requestKey;
  }
  info(modeText(plan.setting.mode));
  info(keySizeText(plan.setting.keySize));
  return import;
}

/// Brings the keys into the key store. After true, the originals are not needed any more.
bool bKeysStored(const Import& import, KeyConf& conf) {
  const KeyManager keys(CryptShim::create_key_manager_object());
  if (keys == nullptr) return bFailed(L"Unable to create key management object");
  if (!bServerKeysImported(*keys, import.publicFile, import.secretFile, import.chosen, conf)) return false;
  if (import.chosen == import.current && !import.fromUpdateDir) importAgentKeys(*keys);
  const Hash hash(CryptShim::create_hash_object(HashType::kSha256));
  if (hash == nullptr) return false;
  recordServerKeyHash(*keys, *hash);
  if (import.chosen.keySize != import.current.keySize) keys->discardAgentKeys();
  return true;
}

}  // namespace
}  // namespace kelt::keys

namespace kelt::helper {

bool CommandLineHelper::ImportKeys(bool fromUpdateDir) {
  const std::wstring directory = keys::keyDirectory(fromUpdateDir);
  if (directory.empty()) return keys::bFailed(L"Unable to get Agent Data Path, Agent might not be installed.");
  const keys::KeyFiles files = keys::keyFilesIn(directory);
  keys::KeyConf conf;
  const keys::Import import = keys::choose(fromUpdateDir, files, keys::currentSetting(conf));
  keys::CryptShim::set_key_size_to_use(import.chosen.keySize);
  keys::info((L"Expecting these key files: " + import.publicFile + L", " + import.secretFile).c_str());
  if (!modes::bFileExists(import.publicFile)) return keys::bFailed(L"Unable to locate server keys ");
  if (!keys::bCryptoReady(import.chosen.mode) || !keys::bKeysStored(import, conf)) return false;
  keys::info(L"Successfully imported the keys.");
  keys::removeKeys(false);
  keys::deleteKeyFiles(files);
  return true;
}

bool CommandLineHelper::RestitueBinFilesSLPwdsToPlainTxt() {
  return true;
}

bool CommandLineHelper::EncryptBinFilesSLPwds() {
  return true;
}

}  // namespace kelt::helper
