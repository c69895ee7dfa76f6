// What a failure leaves behind.
#include <filesystem>
#include <iostream>
#include <map>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include "import_fixture.h"
#include "support/agent_on_device.h"

namespace kelt::tests {
namespace {

class ImportFailure : public ImportKeysTest {
 protected:
  void SetUp() override {
    ImportKeysTest::SetUp();
    putSetting("2", "1");
    putKeys1024();
    putFile(kInstall + "/agentfipsmode", "");
    putFile(kRegistry, registry());
  }

  static std::string registry() {
    return kAgentSection + agentLines(testKey("rsa1024.spki.der"), testKey("rsa1024.pkcs8.der")) +
           bytesLine("AgentGUID", "guid");
  }

  static void expectNothingTouched() {
    EXPECT_EQ(contentOf(kRegistry), registry());
    EXPECT_EQ(contentOf(kConfig), configWith("old"));
    EXPECT_EQ(keyFilesIn(kInstall), (Lines{"agentfipsmode", "reqseckey.bin", "srpubkey.bin"}));
  }
};

TEST_F(ImportFailure, EndsBeforeAnythingWhereTheServersKeyIsMissing) {
  putFile(kInstall + "/srpubkey.bin", "");
  EXPECT_FALSE(importKeys());
  Lines expected = ExpectedLog{}.begin();
  expected.emplace_back("E Unable to locate server keys ");
  EXPECT_EQ(logLines(), expected);
  EXPECT_EQ(contentOf(kKeyConf), "mode=2\nkeysize=1\n");
  EXPECT_EQ(namesIn(kStore), Lines{"keyconf.ini"});
  EXPECT_EQ(m_output.out, "");
  expectNothingTouched();
}

TEST_F(ImportFailure, MakesNoKeyStoreWhereTheServersKeyIsMissing) {
  std::filesystem::remove_all(kStore);
  putFile(kInstall + "/srpubkey.bin", "");
  EXPECT_FALSE(importKeys());
  EXPECT_FALSE(exists(kStore));
}

TEST_F(ImportFailure, EndsWhereTheServersKeyIsNoPublicKey) {
  for (const char* file : {"rsa1024.pkcs8.der", "certificate.pem", "ec.spki.der", "encrypted.pkcs8.pem"}) {
    putFile(kInstall + "/srpubkey.bin", testKey(file));
    ::unlink(kLog.c_str());
    EXPECT_FALSE(importKeys()) << file;
    EXPECT_EQ(logLines(), ExpectedLog{}.with({"E Failed to import the server public key"})) << file;
    EXPECT_EQ(logLines("cryptshim").size(), 1U) << "the reason";
    EXPECT_EQ(contentOf(kKeyConf), "mode=2\nkeysize=1\n");
    EXPECT_EQ(namesIn(kStore), Lines{"keyconf.ini"});
    expectNothingTouched();
  }
}

TEST_F(ImportFailure, GoesOnWithoutTheRequestSecretKey) {
  putFile(kInstall + "/reqseckey.bin", testKey("encrypted.pkcs1.pem"));
  EXPECT_TRUE(importKeys());
  EXPECT_EQ(logLines(), ExpectedLog{}.with({"I Failed to import the server private key, not treating as a failure",
                                            "I Successfully imported the keys."}));
  EXPECT_EQ(namesIn(kStore), (Lines{"keyconf.ini", "server-public.der"}));
  EXPECT_EQ(contentOf(kKeyConf), "mode=2\nkeysize=0\n") << "recorded all the same";
  EXPECT_EQ(keyFilesIn(kInstall), Lines{});
}

TEST_F(ImportFailure, GoesOnWhereTheRequestSecretKeyIsMissing) {
  ::unlink((kInstall + "/reqseckey.bin").c_str());
  EXPECT_TRUE(importKeys());
  EXPECT_EQ(logLines()[5], "I Failed to import the server private key, not treating as a failure");
  EXPECT_EQ(contentOf(kKeyConf), "mode=2\nkeysize=0\n");
}

TEST_F(ImportFailure, EndsWhereTheKeyStoreCannotBeUsed) {
  std::filesystem::rename(kStore, "/opt/Quorvane/store");
  std::filesystem::create_symlink("/opt/Quorvane/store", kStore);
  EXPECT_FALSE(importKeys());
  EXPECT_EQ(logLines().back(), "E Unable to create key management object");
  EXPECT_EQ(logLines("cryptshim"), Lines{"E " + kStore + ": is not a directory"});
  EXPECT_EQ(namesIn("/opt/Quorvane/store"), Lines{"keyconf.ini"});
  expectNothingTouched();
}

TEST_F(ImportFailure, EndsWhereTheSettingCannotBeRecorded) {
  std::filesystem::remove(kKeyConf);
  putDirectory(kKeyConf);
  EXPECT_FALSE(importKeys());
  EXPECT_EQ(logLines(), ExpectedLog{}.with({"E Unable to record the crypto mode and key size"}));
  EXPECT_EQ(m_output.out, "");
  expectNothingTouched();
}

TEST_F(ImportFailure, CanBeRepeatedOnceTheSettingCanBeRecorded) {
  std::filesystem::remove(kKeyConf);
  putDirectory(kKeyConf);
  EXPECT_FALSE(importKeys());
  std::filesystem::remove(kKeyConf);
  EXPECT_TRUE(importKeys());
  EXPECT_EQ(contentOf(kKeyConf), "mode=2\nkeysize=0\n");
  EXPECT_EQ(contentOf(kConfig), configWith(kHash1024));
  EXPECT_EQ(keyFilesIn(kInstall), Lines{});
}

TEST_F(ImportFailure, ReportsAHashThatCannotBeRecordedAndGoesOn) {
  const std::string config = "<Configuration><Version>5.0</Version></Configuration>\n";
  putFile(kConfig, config);
  EXPECT_TRUE(importKeys());
  EXPECT_EQ(logLines(), ExpectedLog{}.with({"E Unable to set the public key hash information in the registry",
                                            "I Successfully imported the keys."}));
  EXPECT_EQ(contentOf(kConfig), config);
  EXPECT_EQ(contentOf(kRegistry), kAgentSection + bytesLine("AgentGUID", "guid"));
  EXPECT_EQ(keyFilesIn(kInstall), Lines{});
}

TEST_F(ImportFailure, NamesEachKeyFileThatCouldNotBeDeletedAndSucceeds) {
  putDirectory(kInstall + "/sr2048pubkey.bin");
  EXPECT_TRUE(importKeys());
  EXPECT_EQ(m_output.out,
            "Could not delete file, /opt/Quorvane/orv//sr2048pubkey.bin\n"
            "Could not delete file, /opt/Quorvane/orv//req2048seckey.bin\n");
  EXPECT_EQ(keyFilesIn(kInstall), Lines{"sr2048pubkey.bin"});
}

TEST_F(ImportFailure, NamesAllFiveKeyFilesInOrder) {
  std::filesystem::remove(kInstall + "/reqseckey.bin");
  std::filesystem::remove(kInstall + "/agentfipsmode");
  putFile("/tmp/srpubkey.bin", testKey("rsa1024.spki.der"));
  // A mount point cannot be removed.
  ASSERT_EQ(::mount("/tmp/srpubkey.bin", (kInstall + "/srpubkey.bin").c_str(), nullptr, MS_BIND, nullptr), 0);
  EXPECT_TRUE(importKeys());
  ASSERT_EQ(::umount2((kInstall + "/srpubkey.bin").c_str(), MNT_DETACH), 0);
  EXPECT_EQ(m_output.out,
            "Could not delete file, /opt/Quorvane/orv//sr2048pubkey.bin\n"
            "Could not delete file, /opt/Quorvane/orv//req2048seckey.bin\n"
            "Could not delete file, /opt/Quorvane/orv//srpubkey.bin\n"
            "Could not delete file, /opt/Quorvane/orv//reqseckey.bin\n"
            "Could not delete file, /opt/Quorvane/orv//agentfipsmode\n");
}

TEST_F(ImportFailure, SucceedsWithoutARegistry) {
  std::filesystem::remove(kRegistry);
  EXPECT_TRUE(importKeys());
  EXPECT_FALSE(exists(kRegistry));
}

TEST_F(ImportFailure, CanBeRepeatedAfterARunThatWasCutShort) {
  // As the power may leave it: keys and setting stored, the originals still there.
  putFile(kStore + "/server-public.der", testKey("rsa1024.spki.der"), 0600);
  putSetting("2", "0");
  EXPECT_TRUE(importKeys());
  // And once more with the registry cleared already.
  putKeys1024();
  EXPECT_TRUE(importKeys());
  EXPECT_EQ(contentOf(kConfig), configWith(kHash1024));
  EXPECT_EQ(keyFilesIn(kInstall), Lines{});
}

TEST_F(ImportFailure, LetsNoSecretIntoLogsAndOutputAndNoOneElseReadIt) {
  putSetting("2", "0");
  EXPECT_TRUE(importKeys());
  const std::string said = contentOf(kLog) + m_output.out + m_output.err;
  const std::string secret = testKey("rsa1024.pkcs8.der");
  for (std::size_t n = 0; n + 8 <= secret.size(); ++n) {
    EXPECT_EQ(said.find(secret.substr(n, 8)), std::string::npos);
    EXPECT_EQ(said.find(bytesLine("", secret.substr(n, 8)).substr(5, 23)), std::string::npos);
  }
  for (const std::string& name : namesIn(kStore))
    EXPECT_EQ(modeOf(kStore + "/" + name), 0600U) << name;
  EXPECT_EQ(modeOf(kStore), 0700U);
}

/// Imports in a process that cannot load the crypto library, and shows its log.
[[noreturn]] void importWithoutCryptoLibrary() {
  const std::string binary = std::filesystem::read_symlink("/proc/self/exe").parent_path();
  const std::string module = binary + "/keltconfig-crypto.so";
  putFile("/tmp/empty", "");
  if (::mount("/tmp/empty", module.c_str(), nullptr, MS_BIND, nullptr) != 0) ::_exit(2);
  const bool importKeys = ImportingHelper().ImportKeys(false);
  for (const std::string& line : logLines())
    std::cerr << line << "\n";
  std::cerr << contentOf(kInstall + "/srpubkey.bin").size() << std::endl;
  ::_exit(importKeys ? 1 : 0);
}

TEST_F(ImportFailure, EndsWhereTheCryptoLibraryCannotBeStarted) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(importWithoutCryptoLibrary(), ::testing::ExitedWithCode(0),
              "I Trying to re-initialize crypto libraries\\.\n"
              "E Unable to re-initialize cryptshim with new mode\\.\n"
              "162\n");
}

/// Every file of the device: its content and mode, and what would tell that it was replaced by the same.
std::map<std::string, std::string> everyFile() {
  std::map<std::string, std::string> files;
  for (const char* top : {"/etc/orv.d", "/opt/Quorvane", "/run", "/tmp"}) {
    files.merge(treeOf(top));
    for (const auto& entry : std::filesystem::recursive_directory_iterator(top)) {
      struct stat info {};
      EXPECT_EQ(::lstat(entry.path().c_str(), &info), 0);
      files[entry.path()] += " inode " + std::to_string(info.st_ino);
    }
  }
  return files;
}

TEST_F(ImportFailure, HasNoPasswordsInItsFilesToConvert) {
  putFile(kScratch + "/etc/SiteList.xml", "<ns:SiteLists><SiteList Password=\"secret\"/></ns:SiteLists>");
  putFile("/tmp/reqseckey.bin", "secret");
  ASSERT_EQ(::chdir("/tmp"), 0);
  const auto before = everyFile();
  ImportingHelper agent;
  m_output = outputOf([&] {
    EXPECT_TRUE(agent.RestitueBinFilesSLPwdsToPlainTxt());
    EXPECT_TRUE(agent.EncryptBinFilesSLPwds());
  });
  EXPECT_EQ(m_output.out + m_output.err, "");
  EXPECT_EQ(everyFile(), before);
  EXPECT_GE(before.size(), 8U);
}

}  // namespace
}  // namespace kelt::tests
