#include "platform/key_inspection.h"

#include <sys/stat.h>
#include <unistd.h>

#include "support/agent_on_device.h"
#include "support/private_device.h"
#include "support/test_keys.h"

#include "platform/anxml.h"
#include "platform/interprocess_write_lock.h"
#include "platform/logger.h"

using kelt::ErrorKind;
using kelt::platform::inspectKeyRecord;
using kelt::platform::inspectKeyStore;
using kelt::platform::inspectStoredKey;
using kelt::platform::KeyInspector;
using kelt::tests::putDirectory;
using kelt::tests::putFile;
using kelt::tests::testKey;
using quorvane_com::QV::crypto::KeySize;
using quorvane_com::QV::crypto::KeyType;
using quorvane_com::QV::crypto::Mode;

namespace {

const std::string kStore = "/tmp/keystore";

std::span<const unsigned char> bytesOf(const std::string& text) {
  return {reinterpret_cast<const unsigned char*>(text.data()), text.size()};
}

/// Whether a key store, a key or a record can be looked at without anything being changed.
class Inspection : public kelt::tests::PrivateDevice {};

TEST_F(Inspection, OfAKeyStoreTakesNoRightsAway) {
  EXPECT_EQ(inspectKeyStore(kStore, 0).error().kind, ErrorKind::kNotFound);
  putDirectory(kStore, 0777);
  EXPECT_TRUE(inspectKeyStore(kStore, 0).ok());
  EXPECT_EQ(kelt::tests::modeOf(kStore), 0777U);
  EXPECT_EQ(inspectKeyStore(kStore, 1).error().kind, ErrorKind::kRefused) << "another owner is wanted";
}

TEST_F(Inspection, OfARecordTellsModeAndSizeOrWhyNot) {
  putDirectory(kStore, 0755);
  EXPECT_EQ(inspectKeyRecord(kStore, 0).error().kind, ErrorKind::kNotFound);
  putFile(kStore + "/keyconf.ini", "mode=0\nkeysize=1\n", 0600);
  const auto record = inspectKeyRecord(kStore, 0);
  ASSERT_TRUE(record.ok());
  EXPECT_EQ(record.value().mode, Mode::kFips);
  EXPECT_EQ(record.value().keySize, KeySize::kHigher);
  putFile(kStore + "/keyconf.ini", "mode=0\n", 0600);
  EXPECT_EQ(inspectKeyRecord(kStore, 0).error().kind, ErrorKind::kMalformed);
  putFile(kStore + "/keyconf.ini", "mode=0\nkeysize=1\n", 0622);
  EXPECT_EQ(inspectKeyRecord(kStore, 0).error().kind, ErrorKind::kRefused);
  EXPECT_EQ(kelt::tests::modeOf(kStore), 0755U);
}

TEST_F(Inspection, OfAStoredKeyGivesItAsItIs) {
  putDirectory(kStore, 0700);
  putFile(kStore + "/server-public.der", "content", 0600);
  const auto key = inspectStoredKey(kStore, KeyType::kServerPublic, 0);
  ASSERT_TRUE(key.ok());
  EXPECT_EQ(std::string(key.value().begin(), key.value().end()), "content");
  EXPECT_EQ(kelt::platform::storedKeyPath(kStore, KeyType::kServerPublic), kStore + "/server-public.der");
  EXPECT_EQ(inspectStoredKey(kStore, KeyType::kAgentSecret, 0).error().kind, ErrorKind::kNotFound);
}

TEST_F(Inspection, OfKeysTellsTheirSizeAndTheHashOfAPublicOne) {
  const auto inspector = KeyInspector::start(false);
  ASSERT_TRUE(inspector.ok()) << inspector.error().message;
  EXPECT_TRUE(inspector.value().version().starts_with("OpenSSL "));
  EXPECT_FALSE(inspector.value().bFipsProvider());
  const auto der = inspector.value().publicKey(bytesOf(testKey("rsa2048.spki.der")));
  const auto pem = inspector.value().publicKey(bytesOf(testKey("rsa2048.pkcs1pub.pem")));
  ASSERT_TRUE(der.ok() && pem.ok());
  EXPECT_EQ(der.value().bits, 2048U);
  EXPECT_EQ(der.value().sha256.size(), 64U);
  EXPECT_EQ(der.value().sha256, pem.value().sha256) << "of the form in which it is kept";
  const auto secret = inspector.value().secretKey(bytesOf(testKey("rsa1024.pkcs8.pem")));
  ASSERT_TRUE(secret.ok());
  EXPECT_EQ(secret.value().bits, 1024U);
  EXPECT_EQ(secret.value().sha256, "");
}

TEST_F(Inspection, OfWhatIsNoKeySaysWhy) {
  const auto inspector = KeyInspector::start(false);
  ASSERT_TRUE(inspector.ok());
  EXPECT_EQ(inspector.value().publicKey(bytesOf("")).error().message, "empty");
  EXPECT_EQ(inspector.value().publicKey(bytesOf(testKey("rsa2048.pkcs8.der"))).error().kind, ErrorKind::kMalformed);
  EXPECT_EQ(inspector.value().secretKey(bytesOf(testKey("rsa2048.spki.der"))).error().kind, ErrorKind::kMalformed);
}

TEST_F(Inspection, OfTheLockTakesAndMakesNothing) {
  EXPECT_FALSE(InterProcessWriteLock::held("name", 0).value());
  EXPECT_FALSE(kelt::tests::exists("/run/orv-locks"));
  {
    InterProcessWriteLock lock("name");
    ASSERT_TRUE(lock.lock(300));
    EXPECT_TRUE(InterProcessWriteLock::held("name", 0).value());
    EXPECT_EQ(InterProcessWriteLock::held("name", 1).error().kind, ErrorKind::kRefused);
  }
  EXPECT_FALSE(InterProcessWriteLock::held("name", 0).value());
  putFile("/run/orv-locks/name", "", 0666);
  EXPECT_EQ(InterProcessWriteLock::held("name", 0).error().kind, ErrorKind::kRefused);
  EXPECT_EQ(InterProcessWriteLock::held("", 0).error().kind, ErrorKind::kRefused);
}

TEST_F(Inspection, OfAnXmlFileSaysWhyItDoesNotLoadAndLogsNothing) {
  AnXml document;
  EXPECT_EQ(document.load("/tmp/none", "a").error().kind, ErrorKind::kNotFound);
  putFile("/tmp/file", "<b/>");
  EXPECT_EQ(document.load("/tmp/file", "a").error().kind, ErrorKind::kMalformed);
  ASSERT_TRUE(document.load("/tmp/file", "b").ok());
  EXPECT_FALSE(document.load(bytesOf("<a>"), "a").ok());
  EXPECT_TRUE(document.load(bytesOf("<a/>"), "a").ok());
  EXPECT_FALSE(kelt::tests::exists("/opt/Quorvane/orv/scratch/logs"));
}

TEST_F(Inspection, IsNotLoggedOnceTheLogIsClosed) {
  putDirectory("/opt/Quorvane/orv/scratch");
  const int status = kelt::tests::statusOfProcess([] {
    closeLog();
    logError(L"test", L"text");
    logInfo(L"test", L"text");
    return !kelt::tests::exists("/opt/Quorvane/orv/scratch/logs");
  });
  EXPECT_EQ(status, 0);
}

}  // namespace
