#include "keys/begun_import.h"

#include <sys/stat.h>
#include <unistd.h>

#include "support/private_device.h"

namespace kelt::keys {
namespace {

using tests::putFile;

const std::string kPlan =
    "stage=cleaning\nfrom=update\nmode=0\nkeysize=1\nlegacy-names=1\nmode-before=2\nkeysize-before=0\n"
    "registry-keys=1\nagent-keys=0\n"
    "file=12AB\nfile=-\nfile=-\nfile=-\nfile=34CD\n";

BegunImport cleaning() {
  BegunImport import;
  import.stage = Stage::kCleaning;
  import.fromUpdateDir = true;
  import.plan = {{Mode::kFips, KeySize::kHigher}, true};
  import.bRegistryKeys = true;
  import.files = {"12AB", "-", "-", "-", "34CD"};
  return import;
}

std::string replaced(std::string text, const std::string& old, const std::string& with) {
  return text.replace(text.find(old), old.size(), with);
}

TEST(BegunImport, IsWrittenAsLines) {
  EXPECT_EQ(planOf(cleaning()), kPlan);
  BegunImport storing;
  storing.bAgentKeys = true;
  storing.files.fill("-");
  EXPECT_EQ(planOf(storing),
            "stage=storing\nfrom=installation\nmode=2\nkeysize=0\nlegacy-names=0\nmode-before=2\nkeysize-before=0\n"
            "registry-keys=0\nagent-keys=1\n"
            "file=-\nfile=-\nfile=-\nfile=-\nfile=-\n");
}

TEST(BegunImport, IsReadAsItWasWritten) {
  const auto import = importIn(kPlan);
  ASSERT_TRUE(import);
  EXPECT_EQ(import->stage, Stage::kCleaning);
  EXPECT_TRUE(import->fromUpdateDir);
  EXPECT_EQ(import->plan.setting, (CryptoSetting{Mode::kFips, KeySize::kHigher}));
  EXPECT_TRUE(import->plan.bLegacyNames);
  EXPECT_FALSE(import->bAgentKeys);
  EXPECT_EQ(import->before, CryptoSetting{});
  EXPECT_TRUE(import->bRegistryKeys);
  EXPECT_TRUE(import->bDiscardsPair());
  EXPECT_FALSE(importIn(replaced(kPlan, "size-before=0", "size-before=1"))->bDiscardsPair());
  EXPECT_EQ(import->files, cleaning().files);
  EXPECT_EQ(importIn(replaced(kPlan, "cleaning", "storing"))->stage, Stage::kStoring);
  EXPECT_FALSE(importIn(replaced(kPlan, "update", "installation"))->fromUpdateDir);
  EXPECT_TRUE(importIn(replaced(kPlan, "agent-keys=0", "agent-keys=1"))->bAgentKeys);
}

TEST(BegunImport, IsNotReadFromAnythingElse) {
  for (const auto& [old, with] :
       std::vector<std::pair<std::string, std::string>>{{"cleaning", "cleanin"},
                                                        {"update", ""},
                                                        {"mode=0", "mode=1"},
                                                        {"keysize=1", "keysize=2"},
                                                        {"names=1", "names=yes"},
                                                        {"agent-keys=0", "agent-keys="},
                                                        {"before=2", "before="},
                                                        {"keysize-before=0", "keysize-before=7"},
                                                        {"registry-keys=1", "registry-keys=10"},
                                                        {"stage=", "stage:"},
                                                        {"mode", "mod"},
                                                        {"file=-\n", ""},
                                                        {"file=-", "file"},
                                                        {"34CD\n", "34CD"},
                                                        {"34CD\n", "34CD\n\n"},
                                                        {"34CD\n", "34CD\nfile=-\n"}}) {
    EXPECT_FALSE(importIn(replaced(kPlan, old, with))) << old << " -> " << with;
  }
  EXPECT_FALSE(importIn(""));
}

class KeyFileIdentity : public tests::PrivateDevice {
 protected:
  static std::array<std::string, kKeyFileCount> identities() { return identitiesOf(keyFilesIn("/tmp")); }
};

TEST_F(KeyFileIdentity, IsTheHashOfTheContent) {
  putFile("/tmp/key", "abc");
  ASSERT_EQ(::symlink("/tmp/key", "/tmp/sr2048pubkey.bin"), 0);
  const std::string hash = "BA7816BF8F01CFEA414140DE5DAE2223B00361A396177A9CB410FF61F20015AD";
  EXPECT_EQ(identities()[0], hash);
  EXPECT_TRUE(bPresent(hash));
  putFile("/tmp/key", "abd");
  EXPECT_NE(identities()[0], hash);
}

TEST_F(KeyFileIdentity, IsThatOfEachInTheOrderOfDeletion) {
  using Identities = std::array<std::string, kKeyFileCount>;
  EXPECT_EQ(identities(), (Identities{"-", "-", "-", "-", "-"}));
  EXPECT_FALSE(bPresent("-"));
  for (const char* name : {"sr2048pubkey.bin", "req2048seckey.bin", "srpubkey.bin", "reqseckey.bin", "agentfipsmode"})
    putFile(std::string("/tmp/") + name, name);
  EXPECT_EQ(identities()[0].substr(0, 8), "F84266B6");
  EXPECT_EQ(identities()[1].substr(0, 8), "B262FE7C");
  EXPECT_EQ(identities()[2].substr(0, 8), "41E22DC0");
  EXPECT_EQ(identities()[3].substr(0, 8), "21D6E128");
  EXPECT_EQ(identities()[4].substr(0, 8), "B12494B3");
}

TEST_F(KeyFileIdentity, IsUnknownForWhatIsNoKeyFile) {
  tests::putDirectory("/tmp/sr2048pubkey.bin");
  ASSERT_EQ(::mkfifo("/tmp/req2048seckey.bin", 0600), 0);
  putFile("/tmp/srpubkey.bin", std::string(64 * 1024 + 1, 'x'));
  putFile("/tmp/reqseckey.bin", std::string(64 * 1024, 'x'));
  for (const std::size_t n : {0U, 1U, 2U})
    EXPECT_EQ(identities().at(n), "?");
  EXPECT_EQ(identities()[3].size(), 64U);
  EXPECT_TRUE(bPresent("?"));
}

}  // namespace
}  // namespace kelt::keys
