#include "provision/received_files.h"

#include <filesystem>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/private_device.h"

namespace fs = std::filesystem;

namespace kelt::provision {
namespace {

using tests::contentOf;
using tests::exists;
using tests::namesIn;
using tests::putFile;

using Names = std::vector<std::string>;

const Names kNames{"SiteList.xml", "agentfipsmode",    "req2048seckey.bin", "reqseckey.bin",
                   "sitelist.xml", "sr2048pubkey.bin", "srpubkey.bin"};

class ReceivedFiles : public tests::PrivateDevice {
 protected:
  void SetUp() override {
    PrivateDevice::SetUp();
    tests::putDirectory("/opt/Quorvane/orv/scratch");
    tests::putDirectory("/tmp/d");
    putFile("/tmp/victim", "untouched");
  }

  static std::string log() { return contentOf("/opt/Quorvane/orv/scratch/logs/keltcfg.log"); }
};

TEST_F(ReceivedFiles, ThatAreOursPass) {
  for (const std::string& name : kNames)
    putFile("/tmp/d/" + name, "mine", 0644);
  EXPECT_TRUE(removeStrangers("/tmp/d"));
  EXPECT_EQ(namesIn("/tmp/d"), kNames);
  EXPECT_FALSE(exists("/opt/Quorvane/orv/scratch/logs"));
}

TEST_F(ReceivedFiles, ThatAreNotThereAreNoStrangers) {
  EXPECT_TRUE(removeStrangers("/tmp/d"));
}

TEST_F(ReceivedFiles, UnderEachNameAreJudged) {
  for (const std::string& name : kNames) {
    fs::create_symlink("/tmp/victim", "/tmp/d/" + name);
    EXPECT_TRUE(removeStrangers("/tmp/d"));
    EXPECT_EQ(namesIn("/tmp/d"), Names{}) << name;
    EXPECT_NE(log().find("\tRemoved what is no file of ours, /tmp/d/" + name + "\n"), std::string::npos) << log();
  }
  EXPECT_EQ(contentOf("/tmp/victim"), "untouched");
}

TEST_F(ReceivedFiles, OfAnyStrangeKindAreRemoved) {
  const std::string key = "/tmp/d/srpubkey.bin";
  fs::create_hard_link("/tmp/victim", key);
  EXPECT_TRUE(removeStrangers("/tmp/d"));
  EXPECT_FALSE(exists(key)) << "of two names";
  ASSERT_EQ(::mkfifo(key.c_str(), 0600), 0);
  EXPECT_TRUE(removeStrangers("/tmp/d"));
  EXPECT_FALSE(exists(key)) << "a FIFO";
  for (const mode_t mode : {0620U, 0602U, 0666U}) {
    putFile(key, "planted", mode);
    EXPECT_TRUE(removeStrangers("/tmp/d"));
    EXPECT_FALSE(exists(key)) << std::oct << mode;
  }
}

TEST_F(ReceivedFiles, OfAnotherUserAreRemoved) {
  const std::string key = "/tmp/d/sr2048pubkey.bin";
  putFile(key, "planted", 0600);
  // A user namespace of one uid cannot give a file away, but what the machine's root owns is foreign in it. There it is
  // a mount point, which cannot be removed.
  const bool bGiven = ::chown(key.c_str(), 65534, 65534) == 0;
  if (!bGiven) {
    ASSERT_EQ(::mount("/etc/passwd", key.c_str(), nullptr, MS_BIND, nullptr), 0);
  }
  EXPECT_EQ(removeStrangers("/tmp/d"), bGiven);
  EXPECT_EQ(exists(key), !bGiven);
  if (!bGiven) {
    ASSERT_EQ(::umount2(key.c_str(), MNT_DETACH), 0);
  }
}

TEST_F(ReceivedFiles, ThatCannotBeRemovedAreToldAndDoNotSaveTheOthers) {
  putFile("/tmp/d/req2048seckey.bin/inside", "kept");
  fs::create_symlink("/tmp/victim", "/tmp/d/srpubkey.bin");
  EXPECT_FALSE(removeStrangers("/tmp/d"));
  EXPECT_EQ(namesIn("/tmp/d"), Names{"req2048seckey.bin"});
  EXPECT_NE(log().find("\tE\t"), std::string::npos);
  EXPECT_NE(log().find("\tCannot remove what is no file of ours, /tmp/d/req2048seckey.bin\n"), std::string::npos)
      << log();
}

TEST_F(ReceivedFiles, ThatAreWrittenNextMayFindADirectoryWhichIsThatStepsToReport) {
  for (const std::string& name : kNames) {
    tests::putDirectory("/tmp/d/" + name);
    EXPECT_EQ(removeStrangers("/tmp/d"), name == "agentfipsmode" || name == "SiteList.xml") << name;
    ASSERT_EQ(::rmdir(("/tmp/d/" + name).c_str()), 0);
  }
}

TEST_F(ReceivedFiles, OfOtherNamesAreNobodysBusiness) {
  fs::create_symlink("/tmp/victim", "/tmp/d/other");
  EXPECT_TRUE(removeStrangers("/tmp/d"));
  EXPECT_EQ(namesIn("/tmp/d"), Names{"other"});
}

TEST_F(ReceivedFiles, GetTheLegacyNamesThatTheirFullFormsLeaveFree) {
  putFile("/tmp/d/req2048seckey.bin", "secret", 0600);
  putFile("/tmp/d/srpubkey.bin", "legacy", 0600);
  claimLegacyNames("/tmp/d");
  EXPECT_EQ(namesIn("/tmp/d"), (Names{"req2048seckey.bin", "reqseckey.bin", "srpubkey.bin"}));
  EXPECT_EQ(contentOf("/tmp/d/reqseckey.bin"), "");
  EXPECT_EQ(contentOf("/tmp/d/srpubkey.bin"), "legacy");
}

TEST_F(ReceivedFiles, KeepALegacyFormThatIsOurs) {
  putFile("/tmp/d/sr2048pubkey.bin", "full", 0600);
  putFile("/tmp/d/srpubkey.bin", "legacy", 0600);
  claimLegacyNames("/tmp/d");
  EXPECT_EQ(contentOf("/tmp/d/srpubkey.bin"), "legacy");
}

TEST_F(ReceivedFiles, TakeALegacyNameFromWhoeverWasQuicker) {
  putFile("/tmp/d/sr2048pubkey.bin", "full", 0600);
  fs::create_symlink("/tmp/victim", "/tmp/d/srpubkey.bin");
  claimLegacyNames("/tmp/d");
  EXPECT_FALSE(fs::is_symlink("/tmp/d/srpubkey.bin"));
  EXPECT_EQ(contentOf("/tmp/d/srpubkey.bin"), "");
  EXPECT_EQ(contentOf("/tmp/victim"), "untouched");
}

}  // namespace
}  // namespace kelt::provision
