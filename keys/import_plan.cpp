#include "keys/import_plan.h"

namespace kelt::keys {
namespace {

ImportPlan planFromMarker(const ImportFacts& facts) {
  ImportPlan plan;
  plan.setting.mode = facts.bMarkerSaysFips ? Mode::kFips : Mode::kNonFips;
  plan.bLegacyNames = !facts.bServerKey2048Exists;
  // The names of the files say how large their keys are, but for FIPS mode, which stays at 2048 bits.
  const bool bLower = plan.bLegacyNames && plan.setting.mode == Mode::kNonFips;
  plan.setting.keySize = bLower ? KeySize::kLower : KeySize::kHigher;
  return plan;
}

}  // namespace

ImportPlan planImport(const ImportFacts& facts) {
  if (facts.bMarkerCounts) return planFromMarker(facts);
  if (facts.fromUpdateDir) return {facts.current, !facts.bServerKey2048Exists};
  return {{Mode::kNonFips, KeySize::kLower}, true};
}

const char* modeText(Mode mode) {
  return mode == Mode::kFips ? "Initializing in FIPS mode" : "Initializing in NON-FIPS mode";
}

const char* keySizeText(KeySize keySize) {
  switch (keySize) {
    case KeySize::kLower:
      return "Setting the key size to be used as Lower 1024 bits";
    case KeySize::kHigher:
      return "Setting the key size to be used as Higher 2048 bits";
  }
  return "Unsupported key size";
}

}  // namespace kelt::keys
