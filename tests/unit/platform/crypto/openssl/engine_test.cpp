#include "crypto/engine.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <poll.h>
#include <pty.h>
#include <sys/inotify.h>
#include <sys/wait.h>

#include "crypto/engine_loader.h"
#include "crypto/no_fips_module.h"
#include "support/private_device.h"
#include "support/test_keys.h"
#include "support/waiting.h"

#include "base/unique_fd.h"

namespace kelt::platform {
namespace {

using tests::testKey;

std::span<const unsigned char> bytesOf(const std::string& text) {
  return {reinterpret_cast<const unsigned char*>(text.data()), text.size()};
}

template <typename Bytes>
std::string textOf(const Bytes& bytes) {
  return {bytes.begin(), bytes.end()};
}

class CryptoEngineTest : public tests::PrivateDevice {
 protected:
  void SetUp() override {
    PrivateDevice::SetUp();
    const auto loaded = loadCryptoEngine();
    ASSERT_TRUE(loaded.ok()) << loaded.error().message;
    m_engine = loaded.value();
    ASSERT_TRUE(m_engine->start(false).ok());
  }
  void TearDown() override { m_engine->stop(); }

  /// What becomes of a file: its bytes in the kept form, or "refused: " and why.
  std::string publicKey(const std::string& file) {
    const auto key = m_engine->publicKey(bytesOf(file));
    return key ? textOf(key.value()) : "refused: " + key.error().message;
  }
  std::string secretKey(const std::string& file) {
    const auto key = m_engine->secretKey(bytesOf(file));
    return key ? textOf(key.value()) : "refused: " + key.error().message;
  }
  bool bTakenByNeither(const std::string& file) {
    return !m_engine->publicKey(bytesOf(file)).ok() && !m_engine->secretKey(bytesOf(file)).ok();
  }

  CryptoEngine* m_engine = nullptr;
};

TEST(CryptoLoader, TellsThatTheEntryFoundNoMemoryForTheEngine) {
  const auto engine = engineFrom([]() -> CryptoEngine* { return nullptr; });
  ASSERT_FALSE(engine.ok());
  EXPECT_EQ(engine.error().kind, base::ErrorKind::kSystem);
  EXPECT_EQ(engine.error().sysErrno, ENOMEM);
  EXPECT_EQ(engine.error().message, "out of memory");
}

TEST(CryptoLoader, LoadsTheOneEngineOfTheProcess) {
  const auto engine = loadCryptoEngine();
  ASSERT_TRUE(engine.ok()) << engine.error().message;
  ASSERT_NE(engine.value(), nullptr);
  EXPECT_EQ(loadCryptoEngine().value(), engine.value());
}

TEST_F(CryptoEngineTest, GivesAPublicKeyInAnyFormAsTheSameSubjectPublicKeyInfo) {
  for (const std::string name : {"rsa1024", "rsa2048"}) {
    const std::string kept = testKey(name + ".spki.der");
    for (const char* form : {".spki.der", ".spki.pem", ".pkcs1pub.der", ".pkcs1pub.pem"}) {
      EXPECT_EQ(publicKey(testKey(name + form)), kept) << name << form;
    }
  }
}

TEST_F(CryptoEngineTest, GivesASecretKeyInAnyFormAsTheSamePkcs8) {
  for (const std::string name : {"rsa1024", "rsa2048"}) {
    const std::string kept = testKey(name + ".pkcs8.der");
    for (const char* form : {".pkcs8.der", ".pkcs8.pem", ".pkcs1.der", ".pkcs1.pem"}) {
      EXPECT_EQ(secretKey(testKey(name + form)), kept) << name << form;
    }
  }
}

TEST_F(CryptoEngineTest, RefusesASecretKeyWhereAPublicOneIsWanted) {
  for (const char* form : {"pkcs8.der", "pkcs1.der"}) {
    EXPECT_EQ(publicKey(testKey(std::string("rsa2048.") + form)), "refused: not an RSA public key") << form;
  }
  for (const char* form : {"pkcs8.pem", "pkcs1.pem"}) {
    EXPECT_EQ(publicKey(testKey(std::string("rsa2048.") + form)),
              "refused: a PEM block that does not hold an RSA public key")
        << form;
  }
}

TEST_F(CryptoEngineTest, RefusesAPublicKeyWhereASecretOneIsWanted) {
  for (const char* form : {"spki.der", "pkcs1pub.der"}) {
    EXPECT_EQ(secretKey(testKey(std::string("rsa2048.") + form)), "refused: not an RSA secret key") << form;
  }
  for (const char* form : {"spki.pem", "pkcs1pub.pem"}) {
    EXPECT_EQ(secretKey(testKey(std::string("rsa2048.") + form)),
              "refused: a PEM block that does not hold an RSA secret key")
        << form;
  }
}

TEST_F(CryptoEngineTest, RefusesKeysOfOtherAlgorithmsAndCertificates) {
  for (const char* name : {"ec.pkcs8.der", "ec.pkcs8.pem", "ec.spki.der", "ec.spki.pem", "certificate.der",
                           "certificate.pem", "rsapss.pkcs8.der", "rsapss.spki.der"}) {
    EXPECT_TRUE(bTakenByNeither(testKey(name))) << name;
  }
}

TEST_F(CryptoEngineTest, RefusesAnEmptyFileAndTextThatIsNoKey) {
  EXPECT_EQ(publicKey(""), "refused: empty");
  EXPECT_EQ(secretKey(""), "refused: empty");
  EXPECT_EQ(publicKey("hello\n"), "refused: neither DER nor PEM");
  EXPECT_EQ(publicKey(" \n\t"), "refused: neither DER nor PEM");
  EXPECT_EQ(publicKey(std::string(10, '\0')), "refused: neither DER nor PEM");
  EXPECT_EQ(publicKey("-----BEGIN PUBLIC KEY-----\n"), "refused: not a complete PEM block");
  EXPECT_EQ(publicKey("-----BEGIN PUBLIC KEY-----\n-----END PUBLIC KEY-----\n"), "refused: not a complete PEM block");
  EXPECT_EQ(publicKey("-----BEGIN PUBLIC KEY-----\naGVsbG8=\n-----END PUBLIC KEY-----\n"),
            "refused: not one complete DER structure, or something follows it");
}

TEST_F(CryptoEngineTest, RefusesADerKeyCutShortAnywhere) {
  const std::string publicDer = testKey("rsa1024.spki.der");
  const std::string secretDer = testKey("rsa1024.pkcs8.der");
  for (std::size_t n = 0; n < publicDer.size(); ++n)
    ASSERT_TRUE(bTakenByNeither(publicDer.substr(0, n))) << n;
  for (std::size_t n = 0; n < secretDer.size(); ++n)
    ASSERT_TRUE(bTakenByNeither(secretDer.substr(0, n))) << n;
}

TEST_F(CryptoEngineTest, RefusesAPemKeyCutShortBeforeItsEndLineIsComplete) {
  const std::string pem = testKey("rsa1024.spki.pem");
  const std::size_t endLine = pem.find("-----END PUBLIC KEY-----") + std::string("-----END PUBLIC KEY-----").size();
  for (std::size_t n = 0; n < endLine; ++n)
    ASSERT_TRUE(bTakenByNeither(pem.substr(0, n))) << n;
  EXPECT_EQ(publicKey(pem.substr(0, endLine)), testKey("rsa1024.spki.der"));
}

TEST_F(CryptoEngineTest, RefusesWhatFollowsADerKey) {
  const std::string der = testKey("rsa2048.spki.der");
  const char* const why = "refused: not one complete DER structure, or something follows it";
  EXPECT_EQ(publicKey(der + "\n"), why);
  EXPECT_EQ(publicKey(der + std::string(1, '\0')), why);
  EXPECT_EQ(publicKey(der + der), why);
  EXPECT_EQ(secretKey(testKey("rsa2048.pkcs8.der") + "x"),
            "refused: not one complete DER structure, or something follows it");
}

TEST_F(CryptoEngineTest, TakesBlanksAndLineEndsAroundAPemKeyAndNothingElse) {
  const std::string pem = testKey("rsa2048.spki.pem");
  const std::string kept = testKey("rsa2048.spki.der");
  EXPECT_EQ(publicKey("\r\n \t" + pem + " \t\r\n\n"), kept);
  EXPECT_EQ(publicKey(pem + "x"), "refused: something follows the PEM block");
  EXPECT_EQ(publicKey(pem + "\n\nsee above\n"), "refused: something follows the PEM block");
  EXPECT_EQ(publicKey(pem + pem), "refused: something follows the PEM block");
  EXPECT_EQ(publicKey("Key of the server\n" + pem), "refused: neither DER nor PEM");
}

TEST_F(CryptoEngineTest, RefusesWhatStandsInAPemKeyUnread) {
  const std::string pem = testKey("rsa2048.spki.pem");
  const std::size_t inside = pem.find('\n', pem.find('\n') + 1);  // the end of the second line
  const std::size_t last = pem.find("-----END");
  const auto with = [&](std::size_t at, const std::string& more) { return pem.substr(0, at) + more + pem.substr(at); };
  ASSERT_EQ(publicKey(with(inside, " \t\r ")), testKey("rsa2048.spki.der"));
  const char* const why = "refused: something else in the PEM block";
  EXPECT_EQ(publicKey(with(pem.find('\n'), "\rx")), why);
  EXPECT_EQ(publicKey(with(inside, "\rAAAA")), why);
  EXPECT_EQ(publicKey(with(inside, std::string(1, '\0'))), why);
  EXPECT_EQ(publicKey(with(last, "-----x\n")), why);
  EXPECT_EQ(publicKey(with(last, "-x\n")), why);
  EXPECT_EQ(publicKey(with(pem.size() - 1, "\rx")), why);
}

TEST_F(CryptoEngineTest, TakesAPemKeyWithLineEndsOfOtherSystems) {
  std::string pem;
  for (const char c : testKey("rsa2048.pkcs1.pem"))
    pem += c == '\n' ? std::string("\r\n") : std::string(1, c);
  EXPECT_EQ(secretKey(pem), testKey("rsa2048.pkcs8.der"));
}

TEST_F(CryptoEngineTest, RefusesATrailingByteInsideThePemBlock) {
  // The base64 of rsa1024.pkcs1pub.der, 140 bytes, ends in "=": appending one byte to it changes the last group only.
  const std::string der = testKey("rsa1024.pkcs1pub.der");
  std::string pem = testKey("rsa1024.pkcs1pub.pem");
  const std::size_t padding = pem.find('=');
  ASSERT_NE(padding, std::string::npos);
  ASSERT_EQ(publicKey(pem), testKey("rsa1024.spki.der"));
  pem[padding] = 'A';
  EXPECT_EQ(publicKey(pem), "refused: not one complete DER structure, or something follows it");
  EXPECT_EQ(der.size() % 3, 2U);
}

TEST_F(CryptoEngineTest, RefusesEncryptedKeys) {
  EXPECT_EQ(secretKey(testKey("encrypted.pkcs1.pem")), "refused: an encrypted key");
  EXPECT_EQ(secretKey(testKey("encrypted.pkcs8.pem")), "refused: an encrypted key");
  EXPECT_EQ(secretKey(testKey("encrypted.pkcs8.der")), "refused: not an RSA secret key");
}

TEST_F(CryptoEngineTest, NeverAsksTheTerminalForAPassphrase) {
  int master = -1;
  const pid_t child = ::forkpty(&master, nullptr, nullptr, nullptr);
  ASSERT_GE(child, 0);
  if (child == 0) {  // with a terminal of its own, as an administrator has
    const bool bRefused = bTakenByNeither(testKey("encrypted.pkcs1.pem")) &&
                          bTakenByNeither(testKey("encrypted.pkcs8.pem")) &&
                          bTakenByNeither(testKey("encrypted.pkcs8.der"));
    ::_exit(bRefused ? 0 : 1);
  }
  pollfd terminal{master, POLLIN, 0};
  ASSERT_EQ(::poll(&terminal, 1, tests::kPatienceMilliseconds), 1) << "it waits for an answer";
  char shown = 0;
  EXPECT_LE(::read(master, &shown, 1), 0) << "it writes to the terminal";
  ::close(master);
  int status = -1;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

TEST_F(CryptoEngineTest, SurvivesEverySingleChangedByte) {
  const std::string der = testKey("rsa1024.pkcs8.der");
  std::size_t taken = 0;
  for (std::size_t n = 0; n < der.size(); ++n) {
    std::string changed = der;
    changed[n] = static_cast<char>(changed[n] ^ 0x55);
    taken += m_engine->secretKey(bytesOf(changed)).ok() ? 1U : 0U;
  }
  // The numbers of a key are not judged, but what holds them is.
  EXPECT_LT(taken, der.size() - 26);
  EXPECT_GT(taken, 0U);
}

TEST_F(CryptoEngineTest, ComputesSha256) {
  const auto hex = [&](const std::string& text) {
    const auto hash = m_engine->sha256(bytesOf(text));
    std::string digits;
    for (const unsigned char byte : hash.value()) {
      digits += "0123456789abcdef"[byte >> 4U];
      digits += "0123456789abcdef"[byte & 15U];
    }
    return digits;
  };
  EXPECT_EQ(hex("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(hex(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
}

TEST_F(CryptoEngineTest, DoesNothingWhileStopped) {
  m_engine->stop();
  m_engine->stop();
  EXPECT_EQ(publicKey(testKey("rsa2048.spki.der")), "refused: OpenSSL is not started");
  EXPECT_EQ(secretKey(testKey("rsa2048.pkcs8.der")), "refused: OpenSSL is not started");
  EXPECT_FALSE(m_engine->sha256(bytesOf("abc")).ok());
  ASSERT_TRUE(m_engine->start(false).ok());
  EXPECT_EQ(publicKey(testKey("rsa2048.spki.der")), testKey("rsa2048.spki.der"));
}

TEST_F(CryptoEngineTest, TakesTheSameKeysInFipsMode) {
  ASSERT_TRUE(m_engine->start(true).ok());
  for (const std::string name : {"rsa1024", "rsa2048"}) {
    EXPECT_EQ(publicKey(testKey(name + ".pkcs1pub.pem")), testKey(name + ".spki.der"));
    EXPECT_EQ(secretKey(testKey(name + ".pkcs1.pem")), testKey(name + ".pkcs8.der"));
  }
  EXPECT_TRUE(m_engine->sha256(bytesOf("abc")).ok());
}

[[noreturn]] void startWithoutFipsModule() {
  const tests::NoFipsModule system;
  const auto engine = loadCryptoEngine();
  if (!system.bEmpty() || !engine) ::_exit(2);
  const auto module = engine.value()->start(true);
  ::_exit(module.ok() && module.value() == CryptoModule::kDefault ? 0 : 1);
}

TEST(CryptoEngineDeathTest, RunsOnTheDefaultModuleWhereTheSystemHasNoFipsModule) {
  // In a process of its own: a module that was loaded once is found again.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(startWithoutFipsModule(), ::testing::ExitedWithCode(0), "");
}

[[noreturn]] void startWithFipsModule() {
  const tests::NoFipsModule system;
  const auto engine = loadCryptoEngine();
  const auto own = std::filesystem::read_symlink("/proc/self/exe").parent_path() / "keltconfig-fips-module.so";
  if (!system.bEmpty() || !system.install(own) || !engine) ::_exit(2);
  const auto module = engine.value()->start(true);
  const bool bOnIt = module.ok() && module.value() == CryptoModule::kFips;
  ::_exit(bOnIt && !engine.value()->sha256(bytesOf("abc")).ok() ? 0 : 1);
}

TEST(CryptoEngineDeathTest, ComputesWithTheFipsModuleOfTheSystemAndWithNothingElse) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(startWithFipsModule(), ::testing::ExitedWithCode(0), "");
}

/// Ends the process: 0 when starting and using the engine opened neither of the two, which its environment names.
[[noreturn]] void useEngineUnderAHostileEnvironment() {
  tests::putFile("/tmp/openssl.cnf", "openssl_conf = none\n");
  tests::putDirectory("/tmp/modules");
  ::setenv("OPENSSL_CONF", "/tmp/openssl.cnf", 1);
  ::setenv("OPENSSL_MODULES", "/tmp/modules", 1);
  tests::putFile("/tmp/modules/fips.so", "not a module");
  const base::UniqueFd watch(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
  const bool bWatching = ::inotify_add_watch(watch.get(), "/tmp/openssl.cnf", IN_OPEN) >= 0 &&
                         ::inotify_add_watch(watch.get(), "/tmp/modules", IN_OPEN) >= 0;
  const auto engine = loadCryptoEngine();
  if (!bWatching || !engine || !engine.value()->start(true)) ::_exit(2);
  if (!engine.value()->publicKey(bytesOf(testKey("rsa2048.spki.pem")))) ::_exit(3);
  char event[4096];
  ::_exit(::read(watch.get(), event, sizeof event) > 0 ? 1 : 0);
}

TEST(CryptoEngineDeathTest, ReadsNoConfigurationAndNoModuleThatTheEnvironmentNames) {
  // In a process of its own: OpenSSL reads its environment once.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(useEngineUnderAHostileEnvironment(), ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace kelt::platform
