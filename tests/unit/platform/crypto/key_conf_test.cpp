#include <unistd.h>

#include "support/private_device.h"

#include "platform/crypto.h"
#include "platform/iconfiguration.h"

namespace quorvane_com::QV::crypto {
namespace {

using kelt::tests::contentOf;
using kelt::tests::modeOf;
using kelt::tests::namesIn;
using kelt::tests::putDirectory;
using kelt::tests::putFile;
using Names = std::vector<std::string>;

const std::string kStore = "/opt/Quorvane/orv/scratch/keystore";
const std::string kFile = kStore + "/keyconf.ini";

class KeyConfTest : public kelt::tests::PrivateDevice {
 protected:
  void SetUp() override {
    PrivateDevice::SetUp();
    orv::configuration::IConfiguration::GetConfiguration().SetConfigurationDirectory(L"/etc/orv.d");
    putDirectory("/opt/Quorvane/orv/scratch");
  }

  /// Whether a file of this content is read, by both operations alike.
  static bool readFrom(const std::string& content) {
    putDirectory(kStore, 0700);
    putFile(kFile, content, 0600);
    Mode mode{77};
    KeySize keySize{77};
    const bool bMode = KeyConf().getCryptoMode(mode);
    const bool bSize = KeyConf().getCryptoKeySize(keySize);
    EXPECT_EQ(bMode, bSize) << content;
    EXPECT_EQ(mode == Mode{77}, !bMode) << content;
    EXPECT_EQ(keySize == KeySize{77}, !bSize) << content;
    return bMode;
  }
};

TEST_F(KeyConfTest, RecordsModeAndKeySizeAsTwoLines) {
  EXPECT_TRUE(KeyConf().SetCryptoMode(Mode::kNonFips, KeySize::kHigher));
  EXPECT_EQ(contentOf(kFile), "mode=2\nkeysize=1\n");
  EXPECT_EQ(modeOf(kFile), 0600U);
  EXPECT_EQ(modeOf(kStore), 0700U);
  EXPECT_TRUE(KeyConf().SetCryptoMode(Mode::kFips, KeySize::kLower));
  EXPECT_EQ(contentOf(kFile), "mode=0\nkeysize=0\n");
  EXPECT_EQ(namesIn(kStore), Names{"keyconf.ini"});
}

TEST_F(KeyConfTest, ReadsBackWhatItRecorded) {
  for (const Mode mode : {Mode::kFips, Mode::kNonFips}) {
    for (const KeySize keySize : {KeySize::kLower, KeySize::kHigher}) {
      ASSERT_TRUE(KeyConf().SetCryptoMode(mode, keySize));
      Mode readMode{77};
      KeySize readSize{77};
      EXPECT_TRUE(KeyConf().getCryptoMode(readMode));
      EXPECT_TRUE(KeyConf().getCryptoKeySize(readSize));
      EXPECT_EQ(readMode, mode);
      EXPECT_EQ(readSize, keySize);
    }
  }
}

TEST_F(KeyConfTest, ReadsTheLinesInEitherOrderAndWithoutALastLineEnd) {
  EXPECT_TRUE(readFrom("mode=2\nkeysize=1\n"));
  EXPECT_TRUE(readFrom("keysize=1\nmode=2"));
}

TEST_F(KeyConfTest, ReadsNothingWhereTheFileIsMissingAndMakesNothing) {
  Mode mode{77};
  KeySize keySize{77};
  EXPECT_FALSE(KeyConf().getCryptoMode(mode));
  EXPECT_FALSE(KeyConf().getCryptoKeySize(keySize));
  EXPECT_EQ(mode, Mode{77});
  EXPECT_EQ(keySize, KeySize{77});
  EXPECT_EQ(namesIn("/opt/Quorvane/orv/scratch"), Names{});
}

TEST_F(KeyConfTest, ReadsNothingWhereAValueIsMissingOrNotOfItsEnumeration) {
  for (const char* content :
       {"", "\n", "mode=2\n", "keysize=1\n", "mode=\nkeysize=1\n", "mode=1\nkeysize=1\n", "mode=2\nkeysize=2\n",
        "mode=-2\nkeysize=1\n", "mode=02\nkeysize=1\n", "mode=2 \nkeysize=1\n", "mode=2\r\nkeysize=1\r\n",
        "mode=2\nmode=2\nkeysize=1\n", "mode=2\nkeysize=1\n\n", "mode=2\nkeysize=1\nother=1\n", "MODE=2\nkeysize=1\n",
        "mode=99999999999999999999\nkeysize=1\n"}) {
    EXPECT_FALSE(readFrom(content)) << content;
  }
  EXPECT_FALSE(readFrom(std::string("mode=2\0\nkeysize=1\n", 18)));
  EXPECT_FALSE(readFrom("mode=2\nkeysize=1\n" + std::string(100'000, '\n')));
}

TEST_F(KeyConfTest, ClosesAKeyStoreThatOthersCouldWriteToAndGoesOn) {
  ASSERT_TRUE(readFrom("mode=0\nkeysize=1\n"));
  putDirectory(kStore, 0777);
  Mode mode{77};
  EXPECT_TRUE(KeyConf().getCryptoMode(mode));
  EXPECT_EQ(mode, Mode::kFips);
  EXPECT_EQ(modeOf(kStore), 0700U);
  putDirectory(kStore, 0777);
  EXPECT_TRUE(KeyConf().SetCryptoMode(Mode::kNonFips, KeySize::kLower));
  EXPECT_EQ(modeOf(kStore), 0700U);
  EXPECT_EQ(contentOf(kFile), "mode=2\nkeysize=0\n");
}

TEST_F(KeyConfTest, TrustsNoRecordThatOthersMayHavePutThere) {
  ASSERT_TRUE(readFrom("mode=0\nkeysize=1\n"));
  ASSERT_EQ(::rename(kFile.c_str(), "/opt/Quorvane/record"), 0);
  ASSERT_EQ(::symlink("/opt/Quorvane/record", kFile.c_str()), 0);
  Mode mode{77};
  EXPECT_FALSE(KeyConf().getCryptoMode(mode));
  EXPECT_FALSE(KeyConf().SetCryptoMode(Mode::kNonFips, KeySize::kLower));
  EXPECT_EQ(contentOf("/opt/Quorvane/record"), "mode=0\nkeysize=1\n");
}

TEST_F(KeyConfTest, RecordsNothingThatIsNotOfTheEnumerations) {
  EXPECT_FALSE(KeyConf().SetCryptoMode(Mode{1}, KeySize::kLower));
  EXPECT_FALSE(KeyConf().SetCryptoMode(Mode::kFips, KeySize{2}));
  EXPECT_EQ(namesIn("/opt/Quorvane/orv/scratch"), Names{});
}

TEST_F(KeyConfTest, KeepsTheOldRecordWhenItCannotBeReplaced) {
  putDirectory(kFile);
  EXPECT_FALSE(KeyConf().SetCryptoMode(Mode::kFips, KeySize::kLower));
  EXPECT_EQ(namesIn(kStore), Names{"keyconf.ini"});
}

TEST_F(KeyConfTest, StandsInTheDataDirectoryThatTheAgentIsConfiguredFor) {
  putFile("/etc/orv.d/ZENTORAGENT3000/config.xml",
          "<Configuration><FrameworkDataDirectory>/opt/Quorvane/data</FrameworkDataDirectory></Configuration>");
  putDirectory("/opt/Quorvane/data");
  EXPECT_TRUE(KeyConf().SetCryptoMode(Mode::kFips, KeySize::kHigher));
  EXPECT_EQ(contentOf("/opt/Quorvane/data/keystore/keyconf.ini"), "mode=0\nkeysize=1\n");
  EXPECT_EQ(namesIn("/opt/Quorvane/orv/scratch"), Names{});
}

}  // namespace
}  // namespace quorvane_com::QV::crypto
