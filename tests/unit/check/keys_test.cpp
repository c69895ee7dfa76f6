#include <sys/stat.h>
#include <unistd.h>

#include "collected.h"
#include "support/test_keys.h"

using kelt::tests::Collected;
using kelt::tests::kAgentName;
using kelt::tests::kInstalled;
using kelt::tests::kInstalledSiteList;
using kelt::tests::kStore;
using kelt::tests::putDirectory;
using kelt::tests::putFile;
using kelt::tests::putProduct;
using kelt::tests::testKey;
using kelt::tests::Trouble;

namespace {

class Keys : public kelt::tests::CheckedDevice {
 protected:
  Collected look(bool bManaged = false) {
    Collected findings;
    m_device = device();
    m_device.bManaged = bManaged;
    checkKeys(m_device, findings);
    return findings;
  }

  void putKeys() {
    putDirectory(kStore, 0700);
    putFile(kStore + "/server-public.der", testKey("rsa2048.spki.der"), 0600);
    putFile(kStore + "/server-request-secret.der", testKey("rsa2048.pkcs8.der"), 0600);
    putFile(kStore + "/keyconf.ini", "mode=2\nkeysize=1\n", 0600);
  }

  /// Records the hash that the look itself tells of.
  void recordHash() {
    const std::string hash = look().report.facts.at("server_key_sha256").front();
    putProduct(kAgentName, {{"binsphash", hash}});
  }

  kelt::check::Device m_device;
};

TEST_F(Keys, AreNotNeededByAnUnmanagedAgent) {
  const Collected findings = look();
  EXPECT_EQ(findings.trouble(), Trouble{});
  EXPECT_FALSE(m_device.bKeysStored);
}

TEST_F(Keys, AreNeededByAManagedAgent) {
  EXPECT_EQ(look(true).trouble(),
            (Trouble{"key.store problem", "key.setting warning", "key.server problem", "key.request warning"}));
}

TEST_F(Keys, OfAManagedAgentAreInOrder) {
  putKeys();
  recordHash();
  const Collected findings = look(true);
  EXPECT_EQ(findings.trouble(), Trouble{});
  EXPECT_EQ(findings.report.facts.at("server_key_bits").front(), "2048");
  EXPECT_EQ(findings.report.facts.at("crypto_mode").front(), "non-FIPS");
  EXPECT_EQ(findings.report.facts.at("key_size").front(), "2048");
  EXPECT_EQ(findings.states("key.hash"), "ok");
  EXPECT_EQ(findings.fact("key.request"), "The secret key for requests has 2048 bits.");
  EXPECT_TRUE(m_device.bKeysStored);
}

TEST_F(Keys, HaveToHaveTheirHashRecorded) {
  putKeys();
  EXPECT_EQ(look(true).trouble(), Trouble{"key.hash problem"});
  EXPECT_EQ(look(false).trouble(), Trouble{});
  putProduct(kAgentName, {{"binsphash", "00"}});
  EXPECT_EQ(look(true).trouble(), Trouble{"key.hash problem"});
  EXPECT_EQ(look(false).trouble(), Trouble{"key.hash warning"});
}

TEST_F(Keys, ThatAreNoneAreToldWithThePath) {
  putKeys();
  putFile(kStore + "/server-public.der", testKey("certificate.der"), 0600);
  const Collected findings = look(true);
  EXPECT_EQ(findings.trouble(), Trouble{"key.server problem"});
  EXPECT_EQ(findings.fact("key.server"), kStore + "/server-public.der: not an RSA public key.");
}

TEST_F(Keys, StayAsTheyAreWhateverTheRightsOfOthers) {
  putKeys();
  ASSERT_EQ(::chmod(kStore.c_str(), 0777), 0);
  recordHash();
  EXPECT_EQ(look(true).trouble(), Trouble{"key.store warning"});
  EXPECT_EQ(kelt::tests::modeOf(kStore), 0777U);
}

TEST_F(Keys, BehindLinksOrWithOtherNamesAreRefused) {
  putKeys();
  ASSERT_EQ(::link((kStore + "/server-request-secret.der").c_str(), (kStore + "/other").c_str()), 0);
  ASSERT_EQ(::unlink((kStore + "/keyconf.ini").c_str()), 0);
  ASSERT_EQ(::symlink("elsewhere", (kStore + "/keyconf.ini").c_str()), 0);
  const Collected findings = look(false);
  EXPECT_EQ(findings.trouble(), (Trouble{"key.setting problem", "key.request problem"}));
}

TEST_F(Keys, HaveASettingThatTheNextImportReplaces) {
  putKeys();
  putFile(kStore + "/keyconf.ini", "mode=7\n", 0600);
  EXPECT_EQ(look(false).trouble(), Trouble{"key.setting warning"});
}

TEST_F(Keys, InFipsModeWantItsProvider) {
  putDirectory(kStore, 0700);
  putFile(kStore + "/keyconf.ini", "mode=0\nkeysize=1\n", 0600);
  const Collected findings = look(false);
  EXPECT_EQ(findings.states("key.fips"), "warning");
  EXPECT_EQ(findings.report.facts.at("crypto_mode").front(), "FIPS");
}

class RegistryKeys : public kelt::tests::CheckedDevice {
 protected:
  static Collected look(const std::string& registry) {
    putFile(kInstalled + "/scratch/registry.ini", registry);
    Collected findings;
    kelt::check::checkRegistry(findings);
    return findings;
  }
};

TEST_F(RegistryKeys, AreNoneWithoutAFileOrValues) {
  Collected findings;
  kelt::check::checkRegistry(findings);
  EXPECT_EQ(findings.trouble(), Trouble{});
  EXPECT_EQ(look("; nothing\n").trouble(), Trouble{});
}

TEST_F(RegistryKeys, ThatWaitForAnImportAreToldOf) {
  const Collected findings = look(
      "[SOFTWARE\\Tellwick\\Zentor\\Agent]\nServerPubKeyBuffSize=dword:00000001\nServerPublicKey=hex:30\n"
      "ReqSecKeyBuffSize=dword:00000001\nReqSecretKey=hex:30\n");
  EXPECT_EQ(findings.trouble(), Trouble{"key.registry warning"});
  EXPECT_NE(findings.fact("key.registry").find("keys of the server that wait"), std::string::npos);
}

TEST_F(RegistryKeys, InAFileThatIsNoneAreAWarning) {
  EXPECT_EQ(look(std::string("a\0b", 3)).trouble(), Trouble{"key.registry warning"});
}

}  // namespace
