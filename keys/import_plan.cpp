#include "keys/import_plan.h"

namespace kelt::keys {
namespace {

ImportPlan planFromMarker(const ImportFacts& facts) {
  ImportPlan plan;
  plan.setting.mode = facts.bMarkerSaysFips ? Mode::kFips : Mode::kNonFips;
  plan.bLegacyNames = !facts.bServerKey2048Exists;
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

const wchar_t* modeText(Mode mode) {
  return mode == Mode::kFips ? L"Initializing in FIPS mode" : L"Initializing in NON-FIPS mode";
}

const wchar_t* keySizeText(KeySize keySize) {
  switch (keySize) {
    case KeySize::kLower:
      return L"Setting the key size to be used as Lower 1024 bits";
    case KeySize::kHigher:
      return L"Setting the key size to be used as Higher 2048 bits";
  }
  return L"Unsupported key size";
}

}  // namespace kelt::keys
