// Which files are imported, and in which mode and key size.
#include "import_fixture.h"

namespace kelt::tests {
namespace {

TEST_F(ImportKeysTest, TakesTheFilesOf1024BitsAndNonFipsWithoutAMarker) {
  putKeys1024();
  putKeys2048();
  EXPECT_TRUE(importKeys());
  EXPECT_EQ(logLines(), ExpectedLog{}.all());
  EXPECT_EQ(contentOf(kKeyConf), "mode=2\nkeysize=0\n");
  EXPECT_EQ(contentOf(kStore + "/server-public.der"), testKey("rsa1024.spki.der"));
  EXPECT_EQ(contentOf(kStore + "/server-request-secret.der"), testKey("rsa1024.pkcs8.der"));
  EXPECT_EQ(contentOf(kConfig), configWith(kHash1024));
}

TEST_F(ImportKeysTest, TakesTheFilesOf2048BitsAndFipsModeFromTheMarker) {
  putKeys1024();
  putKeys2048();
  putFile(kInstall + "/agentfipsmode", "1");
  EXPECT_TRUE(importKeys());
  const ExpectedLog log{
      .mode = "FIPS", .size = "Higher 2048", .publicFile = "sr2048pubkey.bin", .secretFile = "req2048seckey.bin"};
  EXPECT_EQ(logLines(), log.all());
  EXPECT_EQ(contentOf(kKeyConf), "mode=0\nkeysize=1\n");
  EXPECT_EQ(contentOf(kStore + "/server-public.der"), testKey("rsa2048.spki.der"));
  EXPECT_EQ(contentOf(kConfig), configWith(kHash2048));
  EXPECT_EQ(keyFilesIn(kInstall), Lines{});
  EXPECT_EQ(m_output.out, "");
}

TEST_F(ImportKeysTest, KeepsAFipsDeviceAt2048BitsWithOnlyTheFileNamesOf1024Bits) {
  putKeys1024();
  putFile(kInstall + "/agentfipsmode", "1");
  EXPECT_TRUE(importKeys());
  EXPECT_EQ(logLines(), (ExpectedLog{.mode = "FIPS", .size = "Higher 2048"}.all()));
  EXPECT_EQ(contentOf(kKeyConf), "mode=0\nkeysize=1\n");
  EXPECT_EQ(contentOf(kConfig), configWith(kHash1024));
}

TEST_F(ImportKeysTest, TakesEmptyFilesOf2048BitsForAbsent) {
  putKeys1024();
  putFile(kInstall + "/sr2048pubkey.bin", "");
  putFile(kInstall + "/req2048seckey.bin", "");
  putFile(kInstall + "/agentfipsmode", "0");
  EXPECT_TRUE(importKeys());
  EXPECT_EQ(logLines(), ExpectedLog{}.all());
  EXPECT_EQ(contentOf(kKeyConf), "mode=2\nkeysize=0\n");
}

TEST_F(ImportKeysTest, IsNonFipsForAMarkerWithAnyOtherFirstByte) {
  for (const char* marker : {"0", "2", "\n1", " 1", "x1"}) {
    resetDevice();
    putDirectory(kScratch);
    putKeys2048();
    putFile(kInstall + "/agentfipsmode", marker);
    EXPECT_TRUE(importKeys()) << marker;
    EXPECT_EQ(
        logLines(),
        (ExpectedLog{.size = "Higher 2048", .publicFile = "sr2048pubkey.bin", .secretFile = "req2048seckey.bin"}.with(
            {"E Unable to set the public key hash information in the registry", "I Successfully imported the keys."})))
        << marker;
    EXPECT_EQ(contentOf(kKeyConf), "mode=2\nkeysize=1\n");
  }
}

TEST_F(ImportKeysTest, IsFipsForAMarkerWithMoreAfterItsFirstByte) {
  putKeys2048();
  putFile(kInstall + "/agentfipsmode", "1\n");
  EXPECT_TRUE(importKeys());
  EXPECT_EQ(contentOf(kKeyConf), "mode=0\nkeysize=1\n");
}

TEST_F(ImportKeysTest, TakesAnEmptyMarkerForAbsent) {
  putKeys1024();
  putKeys2048();
  putFile(kInstall + "/agentfipsmode", "");
  EXPECT_TRUE(importKeys());
  EXPECT_EQ(logLines(), ExpectedLog{}.all());
  EXPECT_EQ(contentOf(kKeyConf), "mode=2\nkeysize=0\n");
}

TEST_F(ImportKeysTest, IgnoresTheMarkerWhereTheRegistryHoldsServerKeys) {
  putKeys1024();
  putKeys2048();
  putFile(kInstall + "/agentfipsmode", "1");
  putFile(kRegistry, kAgentSection + serverLines("any", "thing"));
  EXPECT_TRUE(importKeys());
  EXPECT_EQ(logLines(), ExpectedLog{}.all());
  EXPECT_EQ(contentOf(kKeyConf), "mode=2\nkeysize=0\n");
  EXPECT_EQ(keyFilesIn(kInstall), Lines{}) << "the marker goes with the others";
}

TEST_F(ImportKeysTest, KeepsTheCurrentSettingForTheUpdateDirectory) {
  putSetting("2", "1");
  putKeys2048(kUpdate);
  putKeys1024();
  EXPECT_TRUE(importKeys(true));
  EXPECT_EQ(logLines(), (ExpectedLog{.size = "Higher 2048",
                                     .directory = kScratch + "//update/",
                                     .publicFile = "sr2048pubkey.bin",
                                     .secretFile = "req2048seckey.bin"}
                             .all()));
  EXPECT_EQ(contentOf(kKeyConf), "mode=2\nkeysize=1\n");
  EXPECT_EQ(contentOf(kStore + "/server-public.der"), testKey("rsa2048.spki.der"));
  EXPECT_EQ(keyFilesIn(kUpdate), Lines{});
  EXPECT_EQ(keyFilesIn(kInstall), (Lines{"reqseckey.bin", "srpubkey.bin"})) << "not the directory of this import";
}

TEST_F(ImportKeysTest, KeepsTheCurrentSizeForTheFileNamesOf1024BitsInTheUpdateDirectory) {
  putSetting("2", "1");
  putKeys1024(kUpdate);
  EXPECT_TRUE(importKeys(true));
  EXPECT_EQ(logLines(), (ExpectedLog{.size = "Higher 2048", .directory = kScratch + "//update/"}.all()));
  EXPECT_EQ(contentOf(kKeyConf), "mode=2\nkeysize=1\n");
}

TEST_F(ImportKeysTest, TakesAMarkerInTheUpdateDirectoryForItsKeys) {
  putSetting("2", "0");
  putKeys2048(kUpdate);
  putFile(kUpdate + "/agentfipsmode", "1");
  EXPECT_TRUE(importKeys(true));
  EXPECT_EQ(contentOf(kKeyConf), "mode=0\nkeysize=1\n");
}

TEST_F(ImportKeysTest, KeepsTheCurrentSettingOfTheUpdateDirectoryWhereTheRegistryHoldsServerKeys) {
  putSetting("2", "0");
  putKeys2048(kUpdate);
  putFile(kUpdate + "/agentfipsmode", "1");
  putFile(kRegistry, kAgentSection + serverLines("any", "thing"));
  EXPECT_TRUE(importKeys(true));
  EXPECT_EQ(contentOf(kKeyConf), "mode=2\nkeysize=0\n");
  EXPECT_EQ(contentOf(kStore + "/server-public.der"), testKey("rsa2048.spki.der"));
}

TEST_F(ImportKeysTest, AssumesNonFipsAnd1024BitsForTheUpdateDirectoryWhereNothingIsRecorded) {
  putKeys2048(kUpdate);
  EXPECT_TRUE(importKeys(true));
  EXPECT_EQ(contentOf(kKeyConf), "mode=2\nkeysize=0\n");
}

TEST_F(ImportKeysTest, DoesNotReinitializeWhereFipsModeStays) {
  putSetting("0", "1");
  putKeys2048(kUpdate);
  EXPECT_TRUE(importKeys(true));
  EXPECT_EQ(logLines(), (ExpectedLog{.mode = "FIPS",
                                     .size = "Higher 2048",
                                     .directory = kScratch + "//update/",
                                     .publicFile = "sr2048pubkey.bin",
                                     .secretFile = "req2048seckey.bin",
                                     .bReinitialized = false}
                             .all()));
  EXPECT_EQ(contentOf(kStore + "/server-public.der"), testKey("rsa2048.spki.der"));
}

TEST_F(ImportKeysTest, ReinitializesWhereNonFipsStaysAndWhereTheModeChanges) {
  putSetting("2", "0");
  putKeys1024();
  EXPECT_TRUE(importKeys());
  EXPECT_EQ(logLines(), ExpectedLog{}.all());
  resetDevice();
  putSetting("0", "0");
  putFile(kConfig, configWith("old"));
  putKeys1024();
  EXPECT_TRUE(importKeys());
  EXPECT_EQ(logLines(), ExpectedLog{}.all());
  EXPECT_EQ(contentOf(kKeyConf), "mode=2\nkeysize=0\n");
}

TEST_F(ImportKeysTest, TakesKeysInPemToo) {
  putFile(kInstall + "/srpubkey.bin", testKey("rsa2048.spki.pem"));
  putFile(kInstall + "/reqseckey.bin", testKey("rsa2048.pkcs1.pem"));
  EXPECT_TRUE(importKeys());
  EXPECT_EQ(contentOf(kStore + "/server-request-secret.der"), testKey("rsa2048.pkcs8.der"));
  EXPECT_EQ(contentOf(kConfig), configWith(kHash2048)) << "the hash is that of the same key in DER";
}

}  // namespace
}  // namespace kelt::tests
