#include "keys/import_plan.h"

#include <gtest/gtest.h>

namespace kelt::keys {
namespace {

constexpr CryptoSetting kFips1024{Mode::kFips, KeySize::kLower};
constexpr CryptoSetting kFips2048{Mode::kFips, KeySize::kHigher};
constexpr CryptoSetting kPlain1024{Mode::kNonFips, KeySize::kLower};
constexpr CryptoSetting kPlain2048{Mode::kNonFips, KeySize::kHigher};

ImportFacts withMarker(bool bFips, bool bServerKey2048Exists) {
  return {.bMarkerCounts = true, .bMarkerSaysFips = bFips, .bServerKey2048Exists = bServerKey2048Exists};
}

TEST(ImportPlan, TakesModeFromTheMarkerAndSizeFromTheKeyFiles) {
  EXPECT_EQ(planImport(withMarker(true, true)).setting, kFips2048);
  EXPECT_EQ(planImport(withMarker(false, true)).setting, kPlain2048);
  EXPECT_EQ(planImport(withMarker(false, false)).setting, kPlain1024);
  EXPECT_FALSE(planImport(withMarker(true, true)).bLegacyNames);
  EXPECT_TRUE(planImport(withMarker(false, false)).bLegacyNames);
}

TEST(ImportPlan, KeepsAFipsDeviceAt2048BitsEvenWithTheFileNamesOf1024Bits) {
  const ImportPlan plan = planImport(withMarker(true, false));
  EXPECT_EQ(plan.setting, kFips2048);
  EXPECT_TRUE(plan.bLegacyNames);
}

TEST(ImportPlan, PutsTheMarkerAboveTheUpdateDirectoryAndTheCurrentSetting) {
  ImportFacts facts = withMarker(true, true);
  facts.fromUpdateDir = true;
  facts.current = kPlain1024;
  EXPECT_EQ(planImport(facts).setting, kFips2048);
}

TEST(ImportPlan, KeepsTheCurrentSettingForTheUpdateDirectory) {
  for (const CryptoSetting& current : {kFips1024, kFips2048, kPlain1024, kPlain2048}) {
    for (const bool bExists : {false, true}) {
      const ImportPlan plan = planImport({.fromUpdateDir = true, .bServerKey2048Exists = bExists, .current = current});
      EXPECT_EQ(plan.setting, current);
      EXPECT_EQ(plan.bLegacyNames, !bExists);
    }
  }
}

TEST(ImportPlan, OtherwiseTakesNonFipsAnd1024BitsWhateverIsThere) {
  for (const CryptoSetting& current : {kFips1024, kFips2048, kPlain1024, kPlain2048}) {
    for (const bool bExists : {false, true}) {
      const ImportPlan plan = planImport({.bServerKey2048Exists = bExists, .current = current});
      EXPECT_EQ(plan.setting, kPlain1024);
      EXPECT_TRUE(plan.bLegacyNames);
    }
  }
}

TEST(ImportPlan, IgnoresWhatAMarkerSaysThatDoesNotCount) {
  EXPECT_EQ(planImport({.bMarkerSaysFips = true, .bServerKey2048Exists = true}).setting, kPlain1024);
}

TEST(ImportPlan, AnnouncesModeAndKeySize) {
  EXPECT_STREQ(modeText(Mode::kFips), "Initializing in FIPS mode");
  EXPECT_STREQ(modeText(Mode::kNonFips), "Initializing in NON-FIPS mode");
  EXPECT_STREQ(keySizeText(KeySize::kLower), "Setting the key size to be used as Lower 1024 bits");
  EXPECT_STREQ(keySizeText(KeySize::kHigher), "Setting the key size to be used as Higher 2048 bits");
  EXPECT_STREQ(keySizeText(KeySize{2}), "Unsupported key size");
}

}  // namespace
}  // namespace kelt::keys
