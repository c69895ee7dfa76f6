// What an unpacking writes, and what it leaves where it cannot: by NsUnzip, as a staged tree takes judged entries.
#include <filesystem>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "unzip/unpacking.h"

namespace fs = std::filesystem;

namespace kelt::tests {
namespace {

class StagedTree : public Unpacking {};

TEST_F(StagedTree, KeepsNoPermissionBitsOfTheArchive) {
  ASSERT_EQ(unpack("good/modes"), 0);
  EXPECT_EQ(modeOf(m_target + "/open.sh"), 0600U);
  EXPECT_EQ(modeOf(m_target + "/shut"), 0700U);
  EXPECT_EQ(modeOf(m_target + "/shut/f"), 0600U);
}

TEST_F(StagedTree, ReplacesFilesAndKeepsWhatTheArchiveDoesNotName) {
  putFile(m_target + "/harmless.txt", "older and longer", 0644);
  putFile(m_target + "/keys/other", "kept");
  ASSERT_EQ(unpack("good/tree"), 0);
  EXPECT_EQ(contentOf(m_target + "/harmless.txt"), "harmless");
  EXPECT_EQ(modeOf(m_target + "/harmless.txt"), 0600U);
  EXPECT_EQ(contentOf(m_target + "/keys/other"), "kept");
}

TEST_F(StagedTree, ReplacesALinkThatWasPlantedUnderAnEntrysNameInsteadOfFollowingIt) {
  putFile("/tmp/victim", "untouched");
  fs::create_symlink("/tmp/victim", m_target + "/harmless.txt");
  ASSERT_EQ(unpack("good/tree"), 0);
  EXPECT_EQ(contentOf("/tmp/victim"), "untouched");
  EXPECT_FALSE(fs::is_symlink(m_target + "/harmless.txt"));
  EXPECT_EQ(contentOf(m_target + "/harmless.txt"), "harmless");
}

TEST_F(StagedTree, WritesThroughNoHardLinkThatWasPlantedUnderAnEntrysName) {
  putFile("/tmp/victim", "untouched");
  fs::create_hard_link("/tmp/victim", m_target + "/harmless.txt");
  ASSERT_EQ(unpack("good/tree"), 0);
  EXPECT_EQ(contentOf("/tmp/victim"), "untouched");
}

TEST_F(StagedTree, RefusesToGoThroughALinkThatWasPlantedAsADirectory) {
  putDirectory("/tmp/elsewhere");
  fs::create_symlink("/tmp/elsewhere", m_target + "/keys");
  const Tree before = treeOf("/tmp");
  EXPECT_EQ(unpack("good/tree"), -1);
  EXPECT_EQ(treeOf("/tmp"), before);
}

TEST_F(StagedTree, RefusesAPipeThatWasPlantedAsADirectoryWithoutWaitingForIt) {
  ASSERT_EQ(::mkfifo((m_target + "/keys").c_str(), 0600), 0);
  EXPECT_EQ(unpack("good/tree"), -1);
  EXPECT_EQ(tests::namesIn(m_target), std::vector<std::string>{"keys"});
}

TEST_F(StagedTree, RefusesWhenADirectoryStandsWhereAFileGoesAndTakesTheRestBack) {
  putFile(m_target + "/keys/k.bin/inside", "kept");
  const Tree before = treeOf("/tmp");
  EXPECT_EQ(unpack("good/tree"), -1);
  EXPECT_EQ(treeOf("/tmp"), before);
}

TEST_F(StagedTree, LeavesNothingOnAFullDisk) {
  const std::string small = "/tmp/small";
  mountSmall(small, std::size_t{1} << 20);
  EXPECT_EQ(::NsUnzip((archives() + "/good/megabytes.zip").c_str(), small.c_str()), -1);
  EXPECT_TRUE(namesIn(small).empty());
}

TEST_F(StagedTree, FailsOnAReadOnlyTarget) {
  mountReadOnly(m_target);
  EXPECT_EQ(unpack("good/tree"), -1);
  EXPECT_TRUE(namesIn(m_target).empty());
}

TEST_F(StagedTree, MakesFilesThatAreNeverReadableByOthersWhateverTheUmask) {
  const mode_t before = ::umask(0);
  const int status = unpack("good/tree");
  ::umask(before);
  ASSERT_EQ(status, 0);
  EXPECT_EQ(modeOf(m_target + "/harmless.txt"), 0600U);
  EXPECT_EQ(modeOf(m_target + "/keys"), 0700U);
}

TEST_F(StagedTree, UnpacksManyEntriesWithFewDescriptors) {
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
  const rlimit few{32, before.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &few), 0);
  const int status = unpack("good/many");
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(namesIn(m_target).size(), 1024U);
}

}  // namespace
}  // namespace kelt::tests
