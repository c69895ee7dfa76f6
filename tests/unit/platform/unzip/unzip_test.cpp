#include "platform/unzip.h"

#include <filesystem>

#include "support/child.h"
#include "support/log.h"
#include "unzip/unpacking.h"

namespace fs = std::filesystem;

namespace kelt::tests {
namespace {

class Unzip : public Unpacking {};

TEST_F(Unzip, UnpacksEveryArchiveThatCommonToolsWrite) {
  for (const std::string& name : archivesIn("good")) {
    resetDevice();
    putDirectory(m_target);
    EXPECT_EQ(::NsUnzip((archives() + "/good/" + name).c_str(), m_target.c_str()), 0) << name;
    const bool withContent = name != "empty.zip";
    EXPECT_EQ(!namesIn(m_target).empty(), withContent) << name;
  }
}

TEST_F(Unzip, RefusesEveryHostileArchiveAndLeavesNothingOfIt) {
  putFile("/tmp/bystander", "untouched");
  for (const std::string& name : archivesIn("hostile")) {
    const Tree before = treeOf("/tmp");
    EXPECT_EQ(::NsUnzip((archives() + "/hostile/" + name).c_str(), m_target.c_str()), -1) << name;
    EXPECT_EQ(treeOf("/tmp"), before) << name;
  }
}

TEST_F(Unzip, SaysInTheLogWhyAnArchiveIsRefused) {
  tests::expectInOwnProcess([&] {
    putDirectory("/opt/Quorvane/orv/scratch");
    putFile("/tmp/refused.zip", "no archive");
    for (int again = 0; again < 2; ++again)
      EXPECT_EQ(::NsUnzip("/tmp/refused.zip", m_target.c_str()), -1);
    ASSERT_EQ(errorsLogged().size(), 1U);
    EXPECT_TRUE(errorsLogged()[0].starts_with("/tmp/refused.zip: ")) << errorsLogged()[0];
  });
}

TEST_F(Unzip, WritesTheBytesOfEveryEntryUnderItsName) {
  ASSERT_EQ(unpack("good/tree"), 0);
  const Tree expected = {{"harmless.txt", "file harmless"},   {"keys", "directory"},
                         {"keys/deep", "directory"},          {"keys/deep/er", "directory"},
                         {"keys/deep/er/k.bin", "file deep"}, {"keys/k.bin", "file top"}};
  EXPECT_EQ(treeOf(m_target), expected);
}

TEST_F(Unzip, TakesStreamedArchivesWithTheSizesAfterTheContent) {
  ASSERT_EQ(unpack("good/streamed"), 0);
  EXPECT_EQ(contentOf(m_target + "/srpubkey.bin").size(), 300U);
}

TEST_F(Unzip, FollowsALinkThatIsTheTargetDirectoryItself) {
  fs::create_symlink(m_target, "/tmp/way");
  EXPECT_EQ(::NsUnzip((archives() + "/good/tree.zip").c_str(), "/tmp/way"), 0);
  EXPECT_EQ(contentOf(m_target + "/keys/k.bin"), "top");
}

TEST_F(Unzip, FailsWithoutAnArchiveOrWithoutATarget) {
  EXPECT_EQ(::NsUnzip("/tmp/missing.zip", m_target.c_str()), -1);
  EXPECT_EQ(::NsUnzip(m_target.c_str(), m_target.c_str()), -1);
  EXPECT_EQ(::NsUnzip((archives() + "/good/tree.zip").c_str(), "/tmp/missing"), -1);
  EXPECT_EQ(::NsUnzip((archives() + "/good/tree.zip").c_str(), "/tmp/target/nothing"), -1);
  EXPECT_EQ(::NsUnzip(nullptr, m_target.c_str()), -1);
  EXPECT_EQ(::NsUnzip((archives() + "/good/tree.zip").c_str(), nullptr), -1);
  EXPECT_FALSE(exists("/tmp/missing"));
}

TEST_F(Unzip, RefusesEveryCutOfAnArchive) {
  const std::string whole = contentOf(archives() + "/good/package.zip");
  for (std::size_t length = 0; length < whole.size(); ++length) {
    putFile("/tmp/cut.zip", whole.substr(0, length));
    ASSERT_EQ(::NsUnzip("/tmp/cut.zip", m_target.c_str()), -1) << length;
    ASSERT_TRUE(namesIn(m_target).empty()) << length;
  }
}

}  // namespace
}  // namespace kelt::tests
