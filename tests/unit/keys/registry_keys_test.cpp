#include "keys/registry_keys.h"

#include "registry_text.h"
#include "support/private_device.h"

namespace kelt::keys {
namespace {

using tests::agentLines;
using tests::bytesLine;
using tests::contentOf;
using tests::kAgentSection;
using tests::kRegistry;
using tests::numberLine;
using tests::putFile;
using tests::serverLines;
using Buffer = AnObjectBuffer<unsigned char>;

std::string textOf(const Buffer& buffer) {
  return {buffer.span().begin(), buffer.span().end()};
}

class RegistryKeys : public tests::PrivateDevice {
 protected:
  /// Whether the server's keys are read from a registry with these lines; if not, nothing may be handed over.
  static bool readServerKeys(const std::string& lines) {
    putFile(kRegistry, kAgentSection + lines);
    Buffer pub;
    Buffer sec;
    const bool bRead = getServerKeys(pub, sec);
    if (!bRead) {
      EXPECT_EQ(pub.length() + sec.length(), 0U) << lines;
    }
    return bRead;
  }
};

TEST_F(RegistryKeys, GivesTheServersPair) {
  putFile(kRegistry, kAgentSection + agentLines("a", "b") + serverLines(std::string("\x30\x00\xff", 3), "secret"));
  Buffer pub;
  Buffer sec;
  EXPECT_TRUE(getServerKeys(pub, sec));
  EXPECT_EQ(textOf(pub), std::string("\x30\x00\xff", 3));
  EXPECT_EQ(textOf(sec), "secret");
}

TEST_F(RegistryKeys, GivesTheAgentsPair) {
  putFile(kRegistry, kAgentSection + serverLines("a", "b") + agentLines("public", "secret"));
  Buffer pub;
  Buffer sec;
  EXPECT_TRUE(getAgentKeys(pub, sec));
  EXPECT_EQ(textOf(pub), "public");
  EXPECT_EQ(textOf(sec), "secret");
}

TEST_F(RegistryKeys, GivesNothingWithoutAFileOrWithoutTheAgentsKey) {
  Buffer pub;
  Buffer sec;
  EXPECT_FALSE(getServerKeys(pub, sec));
  putFile(kRegistry, "[SOFTWARE\\Tellwick\\Other]\n" + serverLines("public", "secret"));
  EXPECT_FALSE(getServerKeys(pub, sec));
  EXPECT_FALSE(getAgentKeys(pub, sec));
}

TEST_F(RegistryKeys, NeedsAllFourValues) {
  const std::string publicSize = numberLine("ServerPubKeyBuffSize", 6);
  const std::string publicKey = bytesLine("ServerPublicKey", "public");
  const std::string secretSize = numberLine("ReqSecKeyBuffSize", 6);
  const std::string secretKey = bytesLine("ReqSecretKey", "secret");
  EXPECT_TRUE(readServerKeys(publicSize + publicKey + secretSize + secretKey));
  EXPECT_FALSE(readServerKeys(publicKey + secretSize + secretKey));
  EXPECT_FALSE(readServerKeys(publicSize + secretSize + secretKey));
  EXPECT_FALSE(readServerKeys(publicSize + publicKey + secretKey));
  EXPECT_FALSE(readServerKeys(publicSize + publicKey + secretSize));
}

TEST_F(RegistryKeys, NeedsValuesOfTheRightType) {
  const std::string secret = numberLine("ReqSecKeyBuffSize", 6) + bytesLine("ReqSecretKey", "secret");
  EXPECT_FALSE(readServerKeys(bytesLine("ServerPubKeyBuffSize", "1234") + bytesLine("ServerPublicKey", "k") + secret));
  EXPECT_FALSE(readServerKeys(numberLine("ServerPubKeyBuffSize", 4) + numberLine("ServerPublicKey", 1) + secret));
}

TEST_F(RegistryKeys, NeedsALengthThatHoldsTheKey) {
  const std::string secret = numberLine("ReqSecKeyBuffSize", 6) + bytesLine("ReqSecretKey", "secret");
  const std::string key = bytesLine("ServerPublicKey", "public");
  EXPECT_FALSE(readServerKeys(numberLine("ServerPubKeyBuffSize", 5) + key + secret));
  EXPECT_FALSE(readServerKeys(numberLine("ServerPubKeyBuffSize", 0) + key + secret));
  EXPECT_TRUE(readServerKeys(numberLine("ServerPubKeyBuffSize", 65536) + key + secret));
  EXPECT_FALSE(readServerKeys(numberLine("ServerPubKeyBuffSize", 65537) + key + secret));
  EXPECT_FALSE(readServerKeys(numberLine("ServerPubKeyBuffSize", 0xFFFFFFFF) + key + secret));
}

TEST_F(RegistryKeys, GivesAKeyThatIsShorterThanItsLengthSaysWithoutPadding) {
  putFile(kRegistry, kAgentSection + numberLine("ServerPubKeyBuffSize", 100) + bytesLine("ServerPublicKey", "public") +
                         numberLine("ReqSecKeyBuffSize", 100) + bytesLine("ReqSecretKey", "secret"));
  Buffer pub;
  Buffer sec;
  EXPECT_TRUE(getServerKeys(pub, sec));
  EXPECT_EQ(textOf(pub), "public");
  EXPECT_EQ(textOf(sec), "secret");
}

TEST_F(RegistryKeys, LeavesTheFileAsItIsWhenReading) {
  const std::string text = "; kept\n" + kAgentSection + serverLines("public", "secret") + "Other=dword:00000001\n";
  putFile(kRegistry, text);
  Buffer pub;
  Buffer sec;
  EXPECT_TRUE(getServerKeys(pub, sec));
  EXPECT_FALSE(getAgentKeys(pub, sec));
  EXPECT_EQ(contentOf(kRegistry), text);
}

TEST_F(RegistryKeys, RemovesTheKeysAndTheHashAndKeepsEverythingElse) {
  putFile(kRegistry, "; agent\n" + kAgentSection + "Before=dword:00000001\n" + serverLines("a", "b") +
                         bytesLine("ServerKeyHash", "hash") + bytesLine("AgentGUID", "guid") + agentLines("c", "d") +
                         "After=dword:00000002\n[Other]\n" + numberLine("PubKeyBuffSize", 1));
  EXPECT_EQ(removeKeys(false), 0);
  EXPECT_EQ(contentOf(kRegistry), "; agent\n" + kAgentSection + "Before=dword:00000001\n" +
                                      bytesLine("AgentGUID", "guid") + "After=dword:00000002\n[Other]\n" +
                                      numberLine("PubKeyBuffSize", 1));
}

TEST_F(RegistryKeys, RemovesTheGuidOnlyOnRequest) {
  putFile(kRegistry, kAgentSection + bytesLine("AgentGUID", "guid"));
  EXPECT_EQ(removeKeys(false), 0);
  EXPECT_EQ(contentOf(kRegistry), kAgentSection + bytesLine("AgentGUID", "guid"));
  EXPECT_EQ(removeKeys(true), 0);
  EXPECT_EQ(contentOf(kRegistry), kAgentSection);
}

TEST_F(RegistryKeys, TellsWhyNothingCouldBeRemoved) {
  EXPECT_EQ(removeKeys(true), 2);
  EXPECT_FALSE(tests::exists(kRegistry));
}

}  // namespace
}  // namespace kelt::keys
