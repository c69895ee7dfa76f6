#include "keys/begun_import.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/private_device.h"

namespace kelt::keys {
namespace {

using tests::putFile;

const std::string kPlan =
    "stage=cleaning\nfrom=update\nmode=0\nkeysize=1\nlegacy-names=1\nmode-before=2\nkeysize-before=0\n"
    "registry-keys=1\nagent-keys=0\n"
    "file=1 2 3.4\nfile=-\nfile=-\nfile=-\nfile=5 6 7.8\n";

BegunImport cleaning() {
  BegunImport import;
  import.stage = Stage::kCleaning;
  import.fromUpdateDir = true;
  import.plan = {{Mode::kFips, KeySize::kHigher}, true};
  import.bRegistryKeys = true;
  import.files = {"1 2 3.4", "-", "-", "-", "5 6 7.8"};
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
                                                        {"7.8\n", "7.8"},
                                                        {"7.8\n", "7.8\n\n"},
                                                        {"7.8\n", "7.8\nfile=-\n"}}) {
    EXPECT_FALSE(importIn(replaced(kPlan, old, with))) << old << " -> " << with;
  }
  EXPECT_FALSE(importIn(""));
}

class KeyFileIdentity : public tests::PrivateDevice {
 protected:
  void SetUp() override {
    PrivateDevice::SetUp();
    putFile("/tmp/key", "content");
  }
};

TEST_F(KeyFileIdentity, IsThatOfTheSameUntouchedFile) {
  const std::string identity = identityOf(L"/tmp/key");
  EXPECT_TRUE(bPresent(identity));
  EXPECT_EQ(identityOf(L"/tmp//key"), identity);
  ASSERT_EQ(::symlink("/tmp/key", "/tmp/link"), 0);
  EXPECT_EQ(identityOf(L"/tmp/link"), identity);
}

TEST_F(KeyFileIdentity, IsAnotherOneForAFileInItsPlaceAndForAnotherContent) {
  const std::string identity = identityOf(L"/tmp/key");
  putFile("/tmp/other", "content");
  EXPECT_NE(identityOf(L"/tmp/other"), identity);
  putFile("/tmp/key", "content, more of it");
  EXPECT_NE(identityOf(L"/tmp/key"), identity);
}

TEST_F(KeyFileIdentity, IsAnotherOneForTimesThatWereSetBack) {
  const std::string identity = identityOf(L"/tmp/key");
  struct stat before {};
  struct stat after {};
  ASSERT_EQ(::stat("/tmp/key", &before), 0);
  const timespec times[] = {before.st_atim, before.st_mtim};
  do {
    putFile("/tmp/key", "CONTENT");
    ASSERT_EQ(::utimensat(AT_FDCWD, "/tmp/key", times, 0), 0);
    ASSERT_EQ(::stat("/tmp/key", &after), 0);
  } while (after.st_ctim.tv_sec == before.st_ctim.tv_sec && after.st_ctim.tv_nsec == before.st_ctim.tv_nsec);
  EXPECT_NE(identityOf(L"/tmp/key"), identity);
}

TEST_F(KeyFileIdentity, IsNoneWithoutAFile) {
  EXPECT_EQ(identityOf(L"/tmp/nothing"), "-");
  EXPECT_FALSE(bPresent("-"));
}

}  // namespace
}  // namespace kelt::keys
