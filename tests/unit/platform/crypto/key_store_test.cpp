#include "crypto/key_store.h"

#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

#include "crypto/engine_loader.h"
#include "support/private_device.h"
#include "support/test_keys.h"

namespace kelt::platform {
namespace {

using quorvane_com::QV::crypto::CryptShimLogger;
using quorvane_com::QV::crypto::KeyType;
using tests::contentOf;
using tests::modeOf;
using tests::namesIn;
using tests::putDirectory;
using tests::putFile;
using tests::testKey;
using Names = std::vector<std::string>;

const std::string kData = "/opt/Quorvane/orv/scratch";
const std::string kStore = kData + "/keystore";

std::wstring& said() {
  static std::wstring text;
  return text;
}
void onError(const wchar_t* /*source*/, const wchar_t* message) {
  said() += std::wstring(L"E ") + message + L"\n";
}
void onInfo(const wchar_t* /*source*/, const wchar_t* message) {
  said() += std::wstring(L"I ") + message + L"\n";
}

class KeyStoreTest : public tests::PrivateDevice {
 protected:
  void SetUp() override {
    PrivateDevice::SetUp();
    putDirectory(kData);
    ASSERT_TRUE(prepareKeyStore(kStore).ok());
    m_engine = loadCryptoEngine().value();
    ASSERT_TRUE(m_engine->start(false).ok());
    said().clear();
  }
  void TearDown() override { m_engine->stop(); }

  KeyStore store() { return {kStore, *m_engine, &m_logger}; }

  bool importFile(KeyType type, const std::string& file) {
    return store().importKey(type, reinterpret_cast<const unsigned char*>(file.data()), file.size());
  }

  CryptoEngine* m_engine = nullptr;
  CryptShimLogger m_logger{onError, onInfo, nullptr, nullptr};
};

TEST_F(KeyStoreTest, KeepsEachTypeInAFileOfItsOwnThatOnlyItsOwnerReads) {
  ::umask(0);
  EXPECT_TRUE(importFile(KeyType::kAgentSecret, testKey("rsa1024.pkcs1.pem")));
  EXPECT_TRUE(importFile(KeyType::kAgentPublic, testKey("rsa1024.pkcs1pub.pem")));
  EXPECT_TRUE(importFile(KeyType::kServerPublic, testKey("rsa2048.spki.pem")));
  EXPECT_TRUE(importFile(KeyType::kServerRequestSecret, testKey("rsa2048.pkcs1.der")));
  ::umask(022);
  EXPECT_EQ(namesIn(kStore),
            (Names{"agent-public.der", "agent-secret.der", "server-public.der", "server-request-secret.der"}));
  for (const std::string& name : namesIn(kStore))
    EXPECT_EQ(modeOf(kStore + "/" + name), 0600U) << name;
  EXPECT_EQ(modeOf(kStore), 0700U);
  EXPECT_EQ(contentOf(kStore + "/agent-secret.der"), testKey("rsa1024.pkcs8.der"));
  EXPECT_EQ(contentOf(kStore + "/agent-public.der"), testKey("rsa1024.spki.der"));
  EXPECT_EQ(contentOf(kStore + "/server-public.der"), testKey("rsa2048.spki.der"));
  EXPECT_EQ(contentOf(kStore + "/server-request-secret.der"), testKey("rsa2048.pkcs8.der"));
  EXPECT_EQ(said(), L"");
}

TEST_F(KeyStoreTest, ImportsFromAFileAndLeavesItThere) {
  putFile("/tmp/server.bin", testKey("rsa2048.spki.pem"));
  EXPECT_TRUE(store().importKeyFromFile(KeyType::kServerPublic, L"/tmp/server.bin"));
  EXPECT_EQ(contentOf(kStore + "/server-public.der"), testKey("rsa2048.spki.der"));
  EXPECT_EQ(contentOf("/tmp/server.bin"), testKey("rsa2048.spki.pem"));
}

TEST_F(KeyStoreTest, LeavesTheStoreAsItWasWhenAFileIsNoKeyOfTheKindAndSaysWhy) {
  ASSERT_TRUE(importFile(KeyType::kServerPublic, testKey("rsa1024.spki.der")));
  putFile("/tmp/secret.bin", testKey("rsa2048.pkcs8.der"));
  EXPECT_FALSE(store().importKeyFromFile(KeyType::kServerPublic, L"/tmp/secret.bin"));
  EXPECT_FALSE(store().importKeyFromFile(KeyType::kServerPublic, L"/tmp"));
  EXPECT_FALSE(store().importKey(KeyType::kServerPublic, nullptr, 7));
  EXPECT_EQ(namesIn(kStore), Names{"server-public.der"});
  EXPECT_EQ(contentOf(kStore + "/server-public.der"), testKey("rsa1024.spki.der"));
  EXPECT_EQ(said(),
            L"I The key in /tmp/secret.bin was not imported: not an RSA public key\n"
            L"I The key in /tmp was not imported: /tmp: not a regular file\n"
            L"I The key in memory was not imported: empty\n");
}

TEST_F(KeyStoreTest, SaysThatAFileIsNotThere) {
  EXPECT_FALSE(store().importKeyFromFile(KeyType::kServerRequestSecret, L"/tmp/none.bin"));
  EXPECT_EQ(said().find(L"I The key in /tmp/none.bin was not imported: "), 0U) << said().size();
  EXPECT_NE(said().find(L"No such file"), std::wstring::npos);
  EXPECT_EQ(namesIn(kStore), Names{});
}

TEST_F(KeyStoreTest, RefusesAFileOfMoreThan64KiB) {
  std::string content = testKey("rsa2048.spki.pem");
  content.resize(65'537, '\n');
  putFile("/tmp/large.bin", content);
  EXPECT_FALSE(store().importKeyFromFile(KeyType::kServerPublic, L"/tmp/large.bin"));
  EXPECT_EQ(namesIn(kStore), Names{});
  putFile("/tmp/large.bin", content.substr(0, 65'536));
  EXPECT_TRUE(store().importKeyFromFile(KeyType::kServerPublic, L"/tmp/large.bin"));
}

TEST_F(KeyStoreTest, KeepsTheOldKeyAndNoRemainsWhenTheDiskIsFull) {
  tests::mountSmall(kData, 16384);
  ASSERT_TRUE(prepareKeyStore(kStore).ok());
  ASSERT_TRUE(importFile(KeyType::kServerPublic, testKey("rsa1024.spki.der")));
  const std::string page(4096, 'x');
  for (int n = 0; n < 3; ++n)
    putFile(kData + "/fill" + std::to_string(n), page);
  EXPECT_FALSE(importFile(KeyType::kServerPublic, testKey("rsa2048.spki.der")));
  EXPECT_EQ(namesIn(kStore), Names{"server-public.der"});
  EXPECT_EQ(contentOf(kStore + "/server-public.der"), testKey("rsa1024.spki.der"));
}

TEST_F(KeyStoreTest, TakesAwayTheRightsOfOthersToAKeyFileItReplaces) {
  putFile(kStore + "/agent-secret.der", "old", 0644);
  EXPECT_TRUE(importFile(KeyType::kAgentSecret, testKey("rsa1024.pkcs8.der")));
  EXPECT_EQ(modeOf(kStore + "/agent-secret.der"), 0600U);
}

TEST_F(KeyStoreTest, WritesNoSecretThroughALinkOrOverADirectory) {
  putFile("/tmp/elsewhere", "untouched");
  std::filesystem::create_symlink("/tmp/elsewhere", kStore + "/agent-secret.der");
  putDirectory(kStore + "/server-request-secret.der");
  EXPECT_FALSE(importFile(KeyType::kAgentSecret, testKey("rsa1024.pkcs8.der")));
  EXPECT_FALSE(importFile(KeyType::kServerRequestSecret, testKey("rsa1024.pkcs8.der")));
  EXPECT_EQ(contentOf("/tmp/elsewhere"), "untouched");
  EXPECT_EQ(namesIn(kStore), (Names{"agent-secret.der", "server-request-secret.der"}));
}

TEST_F(KeyStoreTest, ExportsPublicKeysOnly) {
  ABuffer out;
  ASSERT_TRUE(importFile(KeyType::kServerPublic, testKey("rsa2048.pkcs1pub.pem")));
  ASSERT_TRUE(importFile(KeyType::kServerRequestSecret, testKey("rsa2048.pkcs8.pem")));
  EXPECT_TRUE(store().exportKey(KeyType::kServerPublic, out));
  EXPECT_EQ(std::string(out.span().begin(), out.span().end()), testKey("rsa2048.spki.der"));
  EXPECT_FALSE(store().exportKey(KeyType::kServerRequestSecret, out));
  EXPECT_FALSE(store().exportKey(KeyType::kAgentPublic, out));
  putFile(kStore + "/agent-public.der", "damaged");
  EXPECT_FALSE(store().exportKey(KeyType::kAgentPublic, out));
  EXPECT_EQ(out.length(), 294U) << "changed by a failure";
}

TEST_F(KeyStoreTest, RefusesATypeThatThereIsNot) {
  ABuffer out;
  EXPECT_FALSE(importFile(static_cast<KeyType>(4), testKey("rsa2048.spki.der")));
  EXPECT_FALSE(store().exportKey(static_cast<KeyType>(4), out));
  EXPECT_EQ(namesIn(kStore), Names{});
}

TEST_F(KeyStoreTest, DiscardsTheAgentsOwnPairAndNothingElse) {
  for (const char* name :
       {"agent-public.der", "agent-secret.der", "server-public.der", "server-request-secret.der", "keyconf.ini"}) {
    putFile(kStore + "/" + name, "x");
  }
  EXPECT_TRUE(store().discardAgentKeys());
  EXPECT_EQ(namesIn(kStore), (Names{"keyconf.ini", "server-public.der", "server-request-secret.der"}));
  EXPECT_TRUE(store().discardAgentKeys()) << "with nothing to discard";
}

TEST_F(KeyStoreTest, TellsWhenTheAgentsPairCannotBeDiscarded) {
  putDirectory(kStore + "/agent-secret.der");
  putFile(kStore + "/agent-public.der", "x");
  EXPECT_FALSE(store().discardAgentKeys());
  EXPECT_EQ(namesIn(kStore), Names{"agent-secret.der"});
}

TEST_F(KeyStoreTest, SpeaksToNobodyWithoutALogger) {
  KeyStore silent(kStore, *m_engine, nullptr);
  EXPECT_FALSE(silent.importKeyFromFile(KeyType::kServerPublic, L"/tmp/none.bin"));
}

class KeyStoreDirectory : public tests::PrivateDevice {
 protected:
  void SetUp() override {
    PrivateDevice::SetUp();
    putDirectory(kData);
  }
};

TEST_F(KeyStoreDirectory, IsMadeForItsOwnerOnlyWhateverTheUmask) {
  ::umask(0777);
  const bool bPrepared = prepareKeyStore(kStore).ok();
  ::umask(022);
  EXPECT_TRUE(bPrepared);
  EXPECT_EQ(modeOf(kStore), 0700U);
}

TEST_F(KeyStoreDirectory, IsNotMadeByLookingAtIt) {
  EXPECT_EQ(readStored(kStore, "file", 100).error().kind, base::ErrorKind::kNotFound);
  EXPECT_EQ(namesIn(kData), Names{});
}

TEST_F(KeyStoreDirectory, IsNotMadeWhereTheDataDirectoryIsMissing) {
  EXPECT_FALSE(prepareKeyStore("/opt/Quorvane/none/keystore").ok());
  EXPECT_FALSE(tests::exists("/opt/Quorvane/none"));
}

TEST_F(KeyStoreDirectory, LosesTheRightsOfOthersWhetherItIsWrittenOrRead) {
  for (const mode_t mode : {0755U, 0770U, 0702U, 0777U, 01777U}) {
    putDirectory(kStore, mode);
    putFile(kStore + "/file", "content");
    EXPECT_TRUE(readStored(kStore, "file", 100).ok()) << std::oct << mode;
    EXPECT_EQ(modeOf(kStore), 0700U) << std::oct << mode;
    putDirectory(kStore, mode);
    EXPECT_TRUE(prepareKeyStore(kStore).ok()) << std::oct << mode;
    EXPECT_EQ(modeOf(kStore), 0700U) << std::oct << mode;
  }
}

TEST_F(KeyStoreDirectory, ThatCannotLoseTheRightsOfOthersIsReadWhereTheyCouldNotWrite) {
  putDirectory(kStore, 0755);
  putFile(kStore + "/file", "content");
  tests::mountReadOnly(kStore);
  EXPECT_TRUE(readStored(kStore, "file", 100).ok());
  EXPECT_FALSE(prepareKeyStore(kStore).ok());
  tests::unmount(kStore);
  putDirectory(kStore, 0757);
  tests::mountReadOnly(kStore);
  EXPECT_EQ(readStored(kStore, "file", 100).error().kind, base::ErrorKind::kSystem);
}

TEST_F(KeyStoreDirectory, GivesNoFileThatOthersMayHavePutThere) {
  putDirectory(kStore, 0777);
  const std::string file = kStore + "/file";
  const auto expectRefused = [&](const char* why) {
    EXPECT_EQ(readStored(kStore, "file", 100).error().message, file + ": " + why);
  };
  putFile("/tmp/elsewhere", "untouched", 0644);
  ASSERT_EQ(::symlink("/tmp/elsewhere", file.c_str()), 0);
  expectRefused("is a symbolic link");
  ASSERT_EQ(::unlink(file.c_str()), 0);
  putFile(kStore + "/../own", "untouched", 0644);
  ASSERT_EQ(::link((kStore + "/../own").c_str(), file.c_str()), 0);
  expectRefused("has other names");
  EXPECT_EQ(storeFile(kStore, "file", {}).error().message, file + ": has other names");
  EXPECT_EQ(modeOf(kStore + "/../own"), 0644U) << "a file of ours lost its mode to a name that others gave it";
  ASSERT_EQ(::unlink(file.c_str()), 0);
  ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0);
  expectRefused("is not a regular file");
  ASSERT_EQ(::unlink(file.c_str()), 0);
  putFile(file, "content", 0646);
  expectRefused("can be written by others");
  if (::chown(file.c_str(), 65534, 65534) == 0) expectRefused("belongs to somebody else");
}

TEST_F(KeyStoreDirectory, IsRefusedWhereItBelongsToSomebodyElse) {
  tests::putForeignDirectory(kStore);
  EXPECT_EQ(readStored(kStore, "file", 100).error().message, kStore + ": belongs to somebody else");
  EXPECT_EQ(prepareKeyStore(kStore).error().kind, base::ErrorKind::kRefused);
}

TEST_F(KeyStoreDirectory, IsRefusedWhereItIsAFileOrALink) {
  putFile(kStore, "");
  EXPECT_EQ(prepareKeyStore(kStore).error().message, kStore + ": is not a directory");
  ASSERT_EQ(::unlink(kStore.c_str()), 0);
  putDirectory("/tmp/elsewhere", 0700);
  ASSERT_EQ(::symlink("/tmp/elsewhere", kStore.c_str()), 0);
  EXPECT_EQ(prepareKeyStore(kStore).error().kind, base::ErrorKind::kRefused);
  EXPECT_EQ(namesIn("/tmp/elsewhere"), Names{});
}

}  // namespace
}  // namespace kelt::platform
