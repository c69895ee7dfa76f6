#include "keys/store_keys.h"

#include <memory>
#include <optional>

#include "base/retry.h"
#include "base/utf.h"
#include "helper/agent_log.h"
#include "keys/hex_hash.h"
#include "keys/import_choice.h"
#include "keys/registry_keys.h"
#include "modes/config_values.h"
#include "platform/crypto.h"
#include "platform/logger.h"

namespace kelt::keys {
namespace {

using helper::logEvent;
using helper::logProblem;
using quorvane_com::QV::crypto::CryptShim;
using quorvane_com::QV::crypto::CryptShimLogger;
using quorvane_com::QV::crypto::IKeyManagement;
using quorvane_com::QV::crypto::KeyConf;
using quorvane_com::QV::crypto::KeyType;
using quorvane_com::QV::crypto::Role;

struct DestroyKeyManager {
  void operator()(IKeyManagement* keys) const { CryptShim::destroy_key_manager_object(keys); }
};
using KeyManager = std::unique_ptr<IKeyManagement, DestroyKeyManager>;

/// Starts the crypto library anew in `mode`, unless the agent runs in FIPS mode already and stays there.
bool reinitializeCrypto(Mode mode) {
  Mode running = Mode::kNonFips;
  if (!KeyConf().getCryptoMode(running)) running = Mode::kNonFips;
  if (mode == Mode::kFips && running == Mode::kFips) return true;
  logEvent("Trying to re-initialize crypto libraries.");
  if (!CryptShim::instance()->deinitialize()) return fail("Unable to deinitialize cryptshim.");
  // The library keeps the logger for the life of the process.
  auto* const logger = new CryptShimLogger(logError, logInfo, nullptr, nullptr);
  CryptShim::configure(mode, Role::kDefault, logger, L"keltconfig.sig");
  if (!CryptShim::instance()->initialize()) return fail("Unable to re-initialize cryptshim with new mode.");
  logEvent("Successfully re-initialized crypto libraries.");
  return true;
}

/// The same for whatever it throws, which counts as a failure.
bool prepareCrypto(Mode mode) {
  try {
    return reinitializeCrypto(mode);
  } catch (...) {
    return fail("Unable to configure crypto library");
  }
}

/// Imports the server's keys and records the setting that they are for. Returns false where the server's public key or
/// the setting is not recorded.
bool importServerKeys(IKeyManagement& keys, const std::string& publicFile, const std::string& secretFile,
                      const CryptoSetting& setting) {
  if (!keys.importKeyFromFile(KeyType::kServerPublic, base::toWide(publicFile))) {
    return fail("Failed to import the server public key");
  }
  if (!keys.importKeyFromFile(KeyType::kServerRequestSecret, base::toWide(secretFile))) {
    logEvent("Failed to import the server private key, not treating as a failure");
  }
  // With the wrong setting the agent could not use the keys. The key files stay, for the import to be repeated.
  return KeyConf().SetCryptoMode(setting.mode, setting.keySize) ||
         fail("Unable to record the crypto mode and key size");
}

/// Imports the agent's own pair from the registry emulation, where it holds one.
void importAgentKeys(IKeyManagement& keys) {
  AnObjectBuffer<unsigned char> pub;
  AnObjectBuffer<unsigned char> sec;
  if (!getAgentKeys(pub, sec)) return;
  const bool bImported = keys.importKey(KeyType::kAgentPublic, pub.data(), pub.length()) &&
                         keys.importKey(KeyType::kAgentSecret, sec.data(), sec.length());
  if (!bImported) logProblem("Failed to import the agent keys");
}

/// Records the hash of the server's public key in the agent's configuration.
void recordServerKeyHash(IKeyManagement& keys, HexHash& hash) {
  ABuffer key;
  // Out of the key store, since the hash is that of the form in which the key is kept there.
  if (!keys.exportKey(KeyType::kServerPublic, key)) return;
  const std::optional<std::string> digits = hash.of(key);
  if (digits && !base::askTwice([&] { return modes::bSetServerPublicKeyHashInfo(*digits); })) {
    logProblem("Unable to set the public key hash information in the registry");
  }
}

void tellPlan(const ImportPlan& plan) {
  logEvent(modeText(plan.setting.mode));
  logEvent(keySizeText(plan.setting.keySize));
}

/// Brings the keys into the key store. After true, the originals are not needed any more.
bool storeKeys(const BegunImport& import, const std::string& publicFile, const std::string& secretFile) {
  const KeyManager keys(CryptShim::create_key_manager_object());
  if (keys == nullptr) return fail("Unable to create key management object");
  if (!importServerKeys(*keys, publicFile, secretFile, import.plan.setting)) return false;
  if (import.bAgentKeys) importAgentKeys(*keys);
  HexHash hash;
  if (!hash.bReady()) return false;
  recordServerKeyHash(*keys, hash);
  if (import.bDiscardsPair()) keys->discardAgentKeys();
  return true;
}

void begin(helper::WorkMark& mark, const BegunImport& import) {
  mark.begin({helper::Work::kKeyImport, planOf(import)});
}

}  // namespace

bool fail(const char* why) {
  logProblem(why);
  return false;
}

bool store(BegunImport& import, const KeyFiles& files, helper::WorkMark& mark) {
  const std::string& publicFile = import.plan.bLegacyNames ? files.serverKey : files.serverKey2048;
  const std::string& secretFile = import.plan.bLegacyNames ? files.requestKey : files.requestKey2048;
  tellPlan(import.plan);
  CryptShim::set_key_size_to_use(import.plan.setting.keySize);
  logEvent("Expecting these key files: " + publicFile + ", " + secretFile);
  if (!bFileExists(publicFile)) return fail("Unable to locate server keys ");
  // A library that does not start ends the import while nothing has changed.
  if (!prepareCrypto(import.plan.setting.mode)) return false;
  // By the library, so only once it runs; and before the first change, which they are noted for.
  import.files = identitiesOf(files);
  begin(mark, import);
  if (!storeKeys(import, publicFile, secretFile)) return false;
  logEvent("Successfully imported the keys.");
  // All is in the key store. Not before may a run that finds the mark delete the originals.
  import.stage = Stage::kCleaning;
  begin(mark, import);
  return true;
}

void discardPairOf(const BegunImport& import) {
  // Where the new size was not recorded, the agent goes on with its pair.
  if (import.stage != Stage::kStoring || !import.bDiscardsPair() || !(currentSetting() == import.plan.setting)) return;
  const KeyManager keys(CryptShim::create_key_manager_object());
  if (keys != nullptr) keys->discardAgentKeys();
}

}  // namespace kelt::keys
