#include "keys/key_files.h"

#include <sys/stat.h>

#include "support/log.h"
#include "support/private_device.h"

namespace kelt::keys {
namespace {

using tests::putDirectory;
using tests::putFile;

class KeyFilesTest : public tests::PrivateDevice {
 protected:
  void SetUp() override {
    PrivateDevice::SetUp();
    putDirectory("/opt/Quorvane/orv/scratch");
    putDirectory("/tmp/keys");
  }

  KeyFiles m_files = keyFilesIn("/tmp/keys");
};

TEST_F(KeyFilesTest, AreJoinedToTheirDirectoryAsItIs) {
  EXPECT_EQ(keyFilesIn("/d").serverKey2048, "/d/sr2048pubkey.bin");
  EXPECT_EQ(keyFilesIn("/d/").fipsMarker, "/d//agentfipsmode");
  EXPECT_EQ(keyDirectory(true), "/opt/Quorvane/orv/scratch//update");
  EXPECT_EQ(keyDirectory(false), "/opt/Quorvane/orv/");
}

TEST_F(KeyFilesTest, HaveAMarkerThatSaysFipsByItsFirstByte) {
  EXPECT_FALSE(bMarkerSaysFips(m_files.fipsMarker)) << "there is none";
  for (const auto& [content, bFips] :
       {std::pair{"1", true}, {"1 and more", true}, {"", false}, {"0", false}, {"01", false}}) {
    putFile(m_files.fipsMarker, content);
    EXPECT_EQ(bMarkerSaysFips(m_files.fipsMarker), bFips) << content;
  }
}

TEST_F(KeyFilesTest, AreDeletedWithAWordAboutEachThatIsNotThere) {
  putFile(m_files.serverKey, "key");
  putFile(m_files.fipsMarker, "0");
  const auto printed = tests::outputOf([&] { deleteKeyFiles(m_files); });
  EXPECT_EQ(printed.out,
            "Could not delete file, /tmp/keys/sr2048pubkey.bin\n"
            "Could not delete file, /tmp/keys/req2048seckey.bin\n"
            "Could not delete file, /tmp/keys/reqseckey.bin\n");
  EXPECT_TRUE(tests::namesIn("/tmp/keys").empty());
}

TEST_F(KeyFilesTest, AreDeletedInSilenceWithALineAboutWhatIsLeft) {
  putFile(m_files.serverKey, "key");
  putDirectory(m_files.requestKey);
  const auto printed = tests::outputOf([&] { deleteKeyFilesInSilence(m_files); });
  EXPECT_EQ(printed.out, "");
  EXPECT_EQ(tests::namesIn("/tmp/keys"), std::vector<std::string>{"reqseckey.bin"});
  EXPECT_EQ(tests::errorsLogged(), std::vector<std::string>{"Could not delete file, /tmp/keys/reqseckey.bin"});
}

}  // namespace
}  // namespace kelt::keys
