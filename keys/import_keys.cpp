// The key import. Until the server's public key is in the key store and the setting that it is for is recorded, a
// failure ends it with key files and registry values as they were. From then on it goes through to the end, and the key
// files are removed last. A run that is cut short leaves a mark, by which the next one goes on: storing keys and
// setting is repeated from the key files, by the choices that were made; deleting goes on where it was.

#include <algorithm>
#include <memory>
#include <optional>

#include "base/file_place.h"
#include "base/retry.h"
#include "base/utf.h"
#include "helper/agent_log.h"
#include "helper/agent_paths.h"
#include "helper/command_line_helper.h"
#include "helper/unfinished_work.h"
#include "keys/begun_import.h"
#include "keys/hex_hash.h"
#include "keys/import_plan.h"
#include "keys/key_files.h"
#include "keys/registry_keys.h"
#include "modes/config_values.h"
#include "modes/take_back.h"
#include "modes/unmanaged_mode.h"
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

/// Logs why an import ends here. Returns false, its result.
bool fail(const char* why) {
  logProblem(why);
  return false;
}

bool bFileExists(const std::string& path) {
  return modes::bFileExists(base::toWide(path));
}

CryptoSetting currentSetting() {
  const KeyConf conf;
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

ImportFacts gatherFacts(bool fromUpdateDir, const KeyFiles& files, const CryptoSetting& current, bool bRegistryKeys) {
  ImportFacts facts;
  facts.fromUpdateDir = fromUpdateDir;
  facts.bMarkerCounts = !bRegistryKeys && bFileExists(files.fipsMarker);
  facts.bMarkerSaysFips = facts.bMarkerCounts && bMarkerSaysFips(files.fipsMarker);
  facts.bServerKey2048Exists = bFileExists(files.serverKey2048);
  facts.current = current;
  return facts;
}

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

/// `past` is an import that was cut off and that this one is in the place of: what it has changed by then is not what
/// the choices are to depend on.
BegunImport choose(bool fromUpdateDir, const KeyFiles& files, const std::optional<BegunImport>& past) {
  const bool bAllStored = past && past->stage == Stage::kCleaning;
  BegunImport import;
  import.fromUpdateDir = fromUpdateDir;
  import.bRegistryKeys = past ? past->bRegistryKeys : bServerKeysInRegistry();
  import.before = past && !bAllStored ? past->before : currentSetting();
  import.plan = planImport(gatherFacts(fromUpdateDir, files, import.before, import.bRegistryKeys));
  import.bAgentKeys = import.plan.setting == import.before && !fromUpdateDir && !bAllStored;
  return import;
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

/// Stores what the import brings, marked as begun before the first effect. After true the mark says that only the
/// originals are still to be deleted.
bool store(BegunImport& import, const KeyFiles& files, helper::WorkMark& mark) {
  const std::string& publicFile = import.plan.bLegacyNames ? files.serverKey : files.serverKey2048;
  const std::string& secretFile = import.plan.bLegacyNames ? files.requestKey : files.requestKey2048;
  tellPlan(import.plan);
  CryptShim::set_key_size_to_use(import.plan.setting.keySize);
  logEvent("Expecting these key files: " + publicFile + ", " + secretFile);
  if (!bFileExists(publicFile)) return fail("Unable to locate server keys ");
  if (!prepareCrypto(import.plan.setting.mode)) return false;
  import.files = identitiesOf(files);
  begin(mark, import);
  if (!storeKeys(import, publicFile, secretFile)) return false;
  logEvent("Successfully imported the keys.");
  import.stage = Stage::kCleaning;
  begin(mark, import);
  return true;
}

/// Who hears of a file that cannot be deleted.
enum class Told { kConsole, kLog };

/// Deletes the originals of an import and brings that to the disk.
void deleteOriginals(const KeyFiles& files, Told told) {
  removeKeys(false);
  if (told == Told::kConsole) deleteKeyFiles(files);
  if (told == Told::kLog) deleteKeyFilesInSilence(files);
  static_cast<void>(base::syncDirectory(base::directoryOf(files.fipsMarker)));
  static_cast<void>(base::syncDirectory(base::directoryOf(helper::paths::kRegistryFile)));
}

/// For an import that is not repeated: where its setting was recorded, the agent's pair of the old size still goes.
void discardPairOf(const BegunImport& import) {
  if (import.stage != Stage::kStoring || !import.bDiscardsPair() || !(currentSetting() == import.plan.setting)) return;
  const KeyManager keys(CryptShim::create_key_manager_object());
  if (keys != nullptr) keys->discardAgentKeys();
}

/// Whether the key files are others than `import` goes by: while it stores keys any difference counts, afterwards what
/// has come since.
bool bOthersThan(const BegunImport& import, const KeyFiles& files) {
  const auto now = identitiesOf(files);
  if (import.stage == Stage::kStoring) return now != import.files;
  return !std::equal(now.begin(), now.end(), import.files.begin(),
                     [](const auto& is, const auto& was) { return !bPresent(is) || is == was; });
}

/// What an import finds of an earlier one from the same directory.
struct Earlier {
  std::optional<bool> result;       ///< it was finished, with this result, and there is nothing else to import
  std::optional<BegunImport> past;  ///< it is to be begun anew, from other files
};

/// Finishes `import`, which the mark tells of. With `bOwn` for an import from the same directory.
Earlier finish(BegunImport import, helper::WorkMark& mark, bool bOwn) {
  const KeyFiles files = keyFilesIn(keyDirectory(import.fromUpdateDir));
  const bool bStoring = import.stage == Stage::kStoring;
  const bool bOtherFiles = bOthersThan(import, files);
  // Files that came into the update directory once all was stored are another update; a managed switch copies its own
  // anew.
  if (bOwn && bOtherFiles && (bStoring || !import.fromUpdateDir)) {
    logEvent("Beginning anew the key import that an earlier run began.");
    static_cast<void>(mark.adopt(helper::Work::kKeyImport));
    return {std::nullopt, import};
  }
  logEvent("Finishing the key import that an earlier run began.");
  const bool bDone = !bStoring || (!bOtherFiles && store(import, files, mark));
  if (bDone && !bOtherFiles) {
    deleteOriginals(files, bOwn ? Told::kConsole : Told::kLog);
  } else if (bDone) {
    removeKeys(false);  // what is left of the key files may belong to the new ones by now
  } else {
    logProblem("The key import that an earlier run began could not be finished.");
    discardPairOf(import);
  }
  mark.end();
  return {bOwn && !bOtherFiles ? std::optional(bDone) : std::nullopt, std::nullopt};
}

/// The import that the mark tells of. A plan that does not read is none; the mark is then removed.
std::optional<BegunImport> markedImport(helper::WorkMark& mark) {
  if (!mark.found() || mark.found()->work != helper::Work::kKeyImport) return std::nullopt;
  auto import = importIn(mark.found()->plan);
  if (!import) {
    logProblem("Removed, being no mark of an import: the mark of unfinished work");
    mark.end();
  }
  return import;
}

/// Finishes the work of modes/ that the mark tells of, but for a switch that is the caller's `own` work. Whether it
/// told of such work.
bool finishWorkOfSwitch(helper::WorkMark& mark, std::optional<helper::Work> own) {
  const helper::Work work = mark.found()->work;
  if (work == helper::Work::kTakeBack) modes::finishTakingBack(mark);
  if (work == helper::Work::kUnmanagedSwitch && own != work) modes::finishUnmanagedSwitch(mark);
  return work != helper::Work::kKeyImport;
}

/// Finishes whatever the mark tells of, for an import from the one directory or the other.
Earlier finishBefore(bool fromUpdateDir, helper::WorkMark& mark) {
  if (!mark.found() || finishWorkOfSwitch(mark, std::nullopt)) return {};
  const auto import = markedImport(mark);
  return import ? finish(*import, mark, import->fromUpdateDir == fromUpdateDir) : Earlier{};
}

}  // namespace
}  // namespace kelt::keys

namespace kelt::helper {

bool CommandLineHelper::ImportKeys(bool fromUpdateDir) {
  const std::string directory = keys::keyDirectory(fromUpdateDir);
  if (directory.empty()) return keys::fail("Unable to get Agent Data Path, Agent might not be installed.");
  WorkMark mark;
  const keys::Earlier earlier = keys::finishBefore(fromUpdateDir, mark);
  if (earlier.result) return *earlier.result;
  const keys::KeyFiles files = keys::keyFilesIn(directory);
  keys::BegunImport import = keys::choose(fromUpdateDir, files, earlier.past);
  if (!keys::store(import, files, mark)) {
    if (earlier.past) keys::discardPairOf(*earlier.past);
    return false;
  }
  keys::deleteOriginals(files, keys::Told::kConsole);
  return true;
}

void CommandLineHelper::finishInterrupted(std::optional<Work> own) {
  WorkMark mark;
  if (!mark.found() || keys::finishWorkOfSwitch(mark, own)) return;
  const auto import = keys::markedImport(mark);
  if (!import || (own == Work::kKeyImport && !import->fromUpdateDir)) return;
  static_cast<void>(keys::finish(*import, mark, false));
}

bool CommandLineHelper::RestitueBinFilesSLPwdsToPlainTxt() {
  return true;
}

bool CommandLineHelper::EncryptBinFilesSLPwds() {
  return true;
}

}  // namespace kelt::helper
