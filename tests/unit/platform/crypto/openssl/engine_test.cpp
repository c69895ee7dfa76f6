#include "crypto/engine.h"

#include <gtest/gtest.h>
#include <string>

#include "crypto/openssl/started_engine.h"
#include "support/test_keys.h"

namespace kelt::platform {
namespace {

using tests::bytesOf;
using tests::testKey;

class CryptoEngineTest : public tests::StartedEngine {};

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

}  // namespace
}  // namespace kelt::platform
