#include "keys/import_choice.h"

#include "keys/import_plan.h"
#include "keys/registry_keys.h"
#include "platform/crypto.h"

namespace kelt::keys {
namespace {

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

}  // namespace

CryptoSetting currentSetting() {
  const quorvane_com::QV::crypto::KeyConf conf;
  CryptoSetting setting;
  if (!conf.getCryptoMode(setting.mode)) setting.mode = Mode::kNonFips;
  if (!conf.getCryptoKeySize(setting.keySize)) setting.keySize = KeySize::kLower;
  return setting;
}

BegunImport choose(bool fromUpdateDir, const KeyFiles& files, const std::optional<BegunImport>& past) {
  const bool bAllStored = past && past->stage == Stage::kCleaning;
  BegunImport import;
  import.fromUpdateDir = fromUpdateDir;
  import.bRegistryKeys = past ? past->bRegistryKeys : bServerKeysInRegistry();
  // A cut-off import may have recorded its own setting already; once it had stored all, that is the one that holds.
  import.before = past && !bAllStored ? past->before : currentSetting();
  import.plan = planImport(gatherFacts(fromUpdateDir, files, import.before, import.bRegistryKeys));
  // In another mode or size the pair of the registry is of no use; once all was stored, it is in the key store.
  import.bAgentKeys = import.plan.setting == import.before && !fromUpdateDir && !bAllStored;
  return import;
}

}  // namespace kelt::keys
