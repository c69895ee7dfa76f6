// Key files, by the operations of the engine that parse them: the parser itself stands in the loadable object.
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

#include "crypto/openssl/started_engine.h"
#include "support/test_keys.h"
#include "support/waiting.h"

namespace kelt::platform {
namespace {

using tests::bytesOf;
using tests::testKey;

class KeyParser : public tests::StartedEngine {};

TEST_F(KeyParser, GivesAPublicKeyInAnyFormAsTheSameSubjectPublicKeyInfo) {
  for (const std::string name : {"rsa1024", "rsa2048"}) {
    const std::string kept = testKey(name + ".spki.der");
    for (const char* form : {".spki.der", ".spki.pem", ".pkcs1pub.der", ".pkcs1pub.pem"}) {
      EXPECT_EQ(publicKey(testKey(name + form)), kept) << name << form;
    }
  }
}

TEST_F(KeyParser, GivesASecretKeyInAnyFormAsTheSamePkcs8) {
  for (const std::string name : {"rsa1024", "rsa2048"}) {
    const std::string kept = testKey(name + ".pkcs8.der");
    for (const char* form : {".pkcs8.der", ".pkcs8.pem", ".pkcs1.der", ".pkcs1.pem"}) {
      EXPECT_EQ(secretKey(testKey(name + form)), kept) << name << form;
    }
  }
}

TEST_F(KeyParser, RefusesASecretKeyWhereAPublicOneIsWanted) {
  for (const char* form : {"pkcs8.der", "pkcs1.der"}) {
    EXPECT_EQ(publicKey(testKey(std::string("rsa2048.") + form)), "refused: not an RSA public key") << form;
  }
  for (const char* form : {"pkcs8.pem", "pkcs1.pem"}) {
    EXPECT_EQ(publicKey(testKey(std::string("rsa2048.") + form)),
              "refused: a PEM block that does not hold an RSA public key")
        << form;
  }
}

TEST_F(KeyParser, RefusesAPublicKeyWhereASecretOneIsWanted) {
  for (const char* form : {"spki.der", "pkcs1pub.der"}) {
    EXPECT_EQ(secretKey(testKey(std::string("rsa2048.") + form)), "refused: not an RSA secret key") << form;
  }
  for (const char* form : {"spki.pem", "pkcs1pub.pem"}) {
    EXPECT_EQ(secretKey(testKey(std::string("rsa2048.") + form)),
              "refused: a PEM block that does not hold an RSA secret key")
        << form;
  }
}

TEST_F(KeyParser, RefusesKeysOfOtherAlgorithmsAndCertificates) {
  for (const char* name : {"ec.pkcs8.der", "ec.pkcs8.pem", "ec.spki.der", "ec.spki.pem", "certificate.der",
                           "certificate.pem", "rsapss.pkcs8.der", "rsapss.spki.der"}) {
    EXPECT_TRUE(bTakenByNeither(testKey(name))) << name;
  }
}

TEST_F(KeyParser, RefusesAnEmptyFileAndTextThatIsNoKey) {
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

TEST_F(KeyParser, RefusesADerKeyCutShortAnywhere) {
  const std::string publicDer = testKey("rsa1024.spki.der");
  const std::string secretDer = testKey("rsa1024.pkcs8.der");
  for (std::size_t n = 0; n < publicDer.size(); ++n)
    ASSERT_TRUE(bTakenByNeither(publicDer.substr(0, n))) << n;
  for (std::size_t n = 0; n < secretDer.size(); ++n)
    ASSERT_TRUE(bTakenByNeither(secretDer.substr(0, n))) << n;
}

TEST_F(KeyParser, RefusesAPemKeyCutShortBeforeItsEndLineIsComplete) {
  const std::string pem = testKey("rsa1024.spki.pem");
  const std::size_t endLine = pem.find("-----END PUBLIC KEY-----") + std::string("-----END PUBLIC KEY-----").size();
  for (std::size_t n = 0; n < endLine; ++n)
    ASSERT_TRUE(bTakenByNeither(pem.substr(0, n))) << n;
  EXPECT_EQ(publicKey(pem.substr(0, endLine)), testKey("rsa1024.spki.der"));
}

TEST_F(KeyParser, RefusesWhatFollowsADerKey) {
  const std::string der = testKey("rsa2048.spki.der");
  const char* const why = "refused: not one complete DER structure, or something follows it";
  EXPECT_EQ(publicKey(der + "\n"), why);
  EXPECT_EQ(publicKey(der + std::string(1, '\0')), why);
  EXPECT_EQ(publicKey(der + der), why);
  EXPECT_EQ(secretKey(testKey("rsa2048.pkcs8.der") + "x"),
            "refused: not one complete DER structure, or something follows it");
}

TEST_F(KeyParser, TakesBlanksAndLineEndsAroundAPemKeyAndNothingElse) {
  const std::string pem = testKey("rsa2048.spki.pem");
  const std::string kept = testKey("rsa2048.spki.der");
  EXPECT_EQ(publicKey("\r\n \t" + pem + " \t\r\n\n"), kept);
  EXPECT_EQ(publicKey(pem + "x"), "refused: something follows the PEM block");
  EXPECT_EQ(publicKey(pem + "\n\nsee above\n"), "refused: something follows the PEM block");
  EXPECT_EQ(publicKey(pem + pem), "refused: something follows the PEM block");
  EXPECT_EQ(publicKey("Key of the server\n" + pem), "refused: neither DER nor PEM");
}

TEST_F(KeyParser, RefusesWhatStandsInAPemKeyUnread) {
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

TEST_F(KeyParser, RefusesControlCharactersInTheLinesThatBeginAndEndAPemKey) {
  const std::string pem = testKey("rsa2048.spki.pem");
  for (const std::size_t line : {pem.find("-----BEGIN"), pem.find("-----END")}) {
    for (const char control : {'\x1f', '\t', '\x7f'}) {
      std::string changed = pem;
      changed[changed.find(' ', changed.find(' ', line) + 1)] = control;
      EXPECT_EQ(publicKey(changed), "refused: something else in the PEM block") << line;
    }
  }
}

TEST_F(KeyParser, TakesAPemKeyWithLineEndsOfOtherSystems) {
  std::string pem;
  for (const char c : testKey("rsa2048.pkcs1.pem"))
    pem += c == '\n' ? std::string("\r\n") : std::string(1, c);
  EXPECT_EQ(secretKey(pem), testKey("rsa2048.pkcs8.der"));
}

TEST_F(KeyParser, RefusesATrailingByteInsideThePemBlock) {
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

TEST_F(KeyParser, RefusesEncryptedKeys) {
  EXPECT_EQ(secretKey(testKey("encrypted.pkcs1.pem")), "refused: an encrypted key");
  EXPECT_EQ(secretKey(testKey("encrypted.pkcs8.pem")), "refused: an encrypted key");
  EXPECT_EQ(secretKey(testKey("encrypted.pkcs8.der")), "refused: not an RSA secret key");
}

TEST_F(KeyParser, NeverAsksTheTerminalForAPassphrase) {
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

TEST_F(KeyParser, SurvivesEverySingleChangedByte) {
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

}  // namespace
}  // namespace kelt::platform
