// The agent's own pair: taken from the registry, kept or discarded.
#include "import_fixture.h"

namespace kelt::tests {
namespace {

class ImportAgentKeys : public ImportKeysTest {
 protected:
  void SetUp() override {
    ImportKeysTest::SetUp();
    putSetting("2", "0");
    putKeys1024();
    putRegistry(testKey("rsa2048.spki.der"), testKey("rsa2048.pkcs8.der"));
  }
  static void putRegistry(const std::string& pub, const std::string& sec) {
    putFile(kRegistry, kAgentSection + agentLines(pub, sec) + bytesLine("AgentGUID", "guid"));
  }
  static Lines stored() { return namesIn(kStore); }
};

const Lines kWithoutAgentKeys{"keyconf.ini", "server-public.der", "server-request-secret.der"};
const Lines kWithAgentKeys{"agent-public.der", "agent-secret.der", "keyconf.ini", "server-public.der",
                           "server-request-secret.der"};

TEST_F(ImportAgentKeys, TakesThePairWhereTheSettingStays) {
  EXPECT_TRUE(importKeys());
  EXPECT_EQ(stored(), kWithAgentKeys);
  EXPECT_EQ(contentOf(kStore + "/agent-public.der"), testKey("rsa2048.spki.der"));
  EXPECT_EQ(contentOf(kStore + "/agent-secret.der"), testKey("rsa2048.pkcs8.der"));
  EXPECT_EQ(logLines(), ExpectedLog{}.all());
  EXPECT_EQ(contentOf(kRegistry), kAgentSection + bytesLine("AgentGUID", "guid"));
}

TEST_F(ImportAgentKeys, GoesOnSilentlyWhereTheRegistryHoldsNone) {
  putFile(kRegistry, kAgentSection + bytesLine("AgentGUID", "guid"));
  EXPECT_TRUE(importKeys());
  EXPECT_EQ(stored(), kWithoutAgentKeys);
  EXPECT_EQ(logLines(), ExpectedLog{}.all());
}

TEST_F(ImportAgentKeys, LeavesThePairWhereTheKeySizeOrTheModeChanges) {
  for (const char* setting : {"20", "01"}) {  // mode and key size before
    resetDevice();
    putFile(kConfig, configWith("old"));
    putSetting(std::string(1, setting[0]), std::string(1, setting[1]));
    putKeys2048();
    putFile(kInstall + "/agentfipsmode", "0");  // asks for non-FIPS and 2048 bits
    putRegistry(testKey("rsa2048.spki.der"), testKey("rsa2048.pkcs8.der"));
    EXPECT_TRUE(importKeys());
    EXPECT_EQ(stored(), kWithoutAgentKeys) << setting;
    EXPECT_EQ(contentOf(kRegistry), kAgentSection + bytesLine("AgentGUID", "guid")) << "removed all the same";
  }
}

TEST_F(ImportAgentKeys, LeavesThePairForTheUpdateDirectory) {
  putKeys1024(kUpdate);
  EXPECT_TRUE(importKeys(true));
  EXPECT_EQ(stored(), kWithoutAgentKeys);
}

TEST_F(ImportAgentKeys, ReportsADamagedPublicKeyAndGoesOn) {
  putRegistry("damaged", testKey("rsa2048.pkcs8.der"));
  EXPECT_TRUE(importKeys());
  EXPECT_EQ(logLines(), ExpectedLog{}.with({"E Failed to import the agent keys", "I Successfully imported the keys."}));
  EXPECT_EQ(stored(), kWithoutAgentKeys) << "the secret key is not tried";
  EXPECT_EQ(contentOf(kConfig), configWith(kHash1024));
  EXPECT_EQ(keyFilesIn(kInstall), Lines{});
}

TEST_F(ImportAgentKeys, ReportsADamagedSecretKeyAndGoesOn) {
  putRegistry(testKey("rsa2048.spki.der"), testKey("rsa2048.spki.der"));
  EXPECT_TRUE(importKeys());
  EXPECT_EQ(logLines(), ExpectedLog{}.with({"E Failed to import the agent keys", "I Successfully imported the keys."}));
  EXPECT_EQ(logLines("cryptshim"), Lines{"I The key in memory was not imported: not an RSA secret key"});
  EXPECT_EQ(contentOf(kConfig), configWith(kHash1024));
}

TEST_F(ImportAgentKeys, DiscardsTheOldPairWhereTheKeySizeChanges) {
  putSetting("2", "1");
  putFile(kStore + "/agent-secret.der", "old");
  putFile(kStore + "/agent-public.der", "old");
  EXPECT_TRUE(importKeys());
  EXPECT_EQ(contentOf(kKeyConf), "mode=2\nkeysize=0\n");
  EXPECT_EQ(stored(), kWithoutAgentKeys);
}

TEST_F(ImportAgentKeys, DiscardsTheOldPairWhereTheKeySizeGrows) {
  putKeys2048();
  putFile(kInstall + "/agentfipsmode", "0");
  putFile(kStore + "/agent-secret.der", "old");
  putFile(kStore + "/agent-public.der", "old");
  EXPECT_TRUE(importKeys());
  EXPECT_EQ(contentOf(kKeyConf), "mode=2\nkeysize=1\n");
  EXPECT_EQ(stored(), kWithoutAgentKeys);
}

TEST_F(ImportAgentKeys, KeepsTheOldPairWhereTheKeySizeStays) {
  putFile(kRegistry, kAgentSection);
  putFile(kStore + "/agent-secret.der", "old");
  putFile(kStore + "/agent-public.der", "old");
  EXPECT_TRUE(importKeys());
  EXPECT_EQ(contentOf(kStore + "/agent-secret.der"), "old");
  EXPECT_EQ(contentOf(kStore + "/agent-public.der"), "old");
}

}  // namespace
}  // namespace kelt::tests
