#include "platform/unzip.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/child.h"
#include "support/log.h"
#include "support/private_device.h"
#include "unzip/guard.h"

#include "base/file_read.h"

namespace fs = std::filesystem;

namespace kelt::tests {
namespace {

/// The archives that tests/data/archives makes, in a directory that no test empties.
const std::string& archives() {
  static const std::string directory = [] {
    const std::string script = KELT_TEST_DATA "/archives/make_archives.py";
    const int status = std::system(("/usr/bin/python3 -B " + script + " /archives").c_str());
    if (status != 0) std::abort();
    return std::string("/archives");
  }();
  return directory;
}

std::vector<std::string> archivesIn(const std::string& kind) {
  std::vector<std::string> names = namesIn(archives() + "/" + kind);
  EXPECT_GT(names.size(), 10U);
  return names;
}

/// Every path below a directory, with its kind and content.
std::map<std::string, std::string> treeOf(const std::string& directory) {
  std::map<std::string, std::string> tree;
  for (const auto& entry : fs::recursive_directory_iterator(directory)) {
    const std::string path = entry.path();
    const std::string name = path.substr(directory.size() + 1);
    if (entry.is_symlink()) {
      tree[name] = "link to " + fs::read_symlink(path).string();
    } else if (entry.is_directory()) {
      tree[name] = "directory";
    } else {
      tree[name] = "file " + contentOf(path);
    }
  }
  return tree;
}

using Tree = std::map<std::string, std::string>;

class Unzip : public PrivateDevice {
 protected:
  void SetUp() override {
    PrivateDevice::SetUp();
    putDirectory(m_target);
  }

  int unpack(const std::string& archive) {
    return ::NsUnzip((archives() + "/" + archive + ".zip").c_str(), m_target.c_str());
  }

  const std::string m_target = "/tmp/target";
};

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

/// Why the first pass refuses an archive.
std::string verdictOn(const std::string& path) {
  const auto content = base::readFile(path);
  if (!content) return content.error().message;
  const auto archive = platform::ZipArchive::open(content.value());
  if (!archive) return archive.error().message.substr(0, 9);
  const auto entries = platform::judgeArchive(archive.value());
  return entries ? "passed" : entries.error().message;
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

TEST_F(Unzip, RefusesEachHostileArchiveForItsOwnReason) {
  const std::map<std::string, std::vector<std::string>> expected = {
      {"a name that leads elsewhere",
       {"absolute", "dot", "dot_only", "double_slash", "levels_17", "no_name", "parent", "parent_directory",
        "parent_inside", "parent_only", "part_of_300", "slash_only"}},
      {"a name with forbidden characters",
       {"backslash", "delete_in_name", "drive", "escape_in_name", "latin1_name", "line_end_in_name", "name_of_513",
        "overlong_utf8_name", "surrogate_name"}},
      {"too much content", {"bomb", "two_halves_too_much"}},
      {"an entry longer than declared", {"bomb_that_lies", "understated"}},
      {"an entry that is encrypted or packed in an unknown way", {"bzip2", "encrypted", "lzma"}},
      {"not a zip", {"cut_by_one", "cut_in_content", "cut_in_directory", "text"}},
      {"an entry that is damaged", {"damaged_content", "wrong_checksum"}},
      {"an entry that is no file and no directory",
       {"device", "directory_with_content", "directory_without_slash", "fifo", "file_through_link", "link",
        "link_named_as_directory"}},
      {"a name that stands for two things",
       {"directory_then_file", "duplicate", "duplicate_directory", "duplicate_in_other_case",
        "file_and_directory_entry", "file_then_directory"}},
      {"too many entries", {"entries_1025", "entries_2000"}},
      {"too short", {"no_bytes", "short"}},
      {"an entry shorter than declared", {"overstated"}},
  };
  std::size_t told = 0;
  for (const auto& [reason, names] : expected) {
    for (const std::string& name : names)
      EXPECT_EQ(verdictOn(archives() + "/hostile/" + name + ".zip"), reason) << name;
    told += names.size();
  }
  EXPECT_EQ(told, archivesIn("hostile").size());
}

TEST_F(Unzip, WritesTheBytesOfEveryEntryUnderItsName) {
  ASSERT_EQ(unpack("good/tree"), 0);
  const Tree expected = {{"harmless.txt", "file harmless"},   {"keys", "directory"},
                         {"keys/deep", "directory"},          {"keys/deep/er", "directory"},
                         {"keys/deep/er/k.bin", "file deep"}, {"keys/k.bin", "file top"}};
  EXPECT_EQ(treeOf(m_target), expected);
}

TEST_F(Unzip, TakesStreamedArchivesWithTheSizesBehindTheContent) {
  ASSERT_EQ(unpack("good/streamed"), 0);
  EXPECT_EQ(contentOf(m_target + "/srpubkey.bin").size(), 300U);
}

TEST_F(Unzip, KeepsNoPermissionBitsOfTheArchive) {
  ASSERT_EQ(unpack("good/modes"), 0);
  EXPECT_EQ(modeOf(m_target + "/open.sh"), 0600U);
  EXPECT_EQ(modeOf(m_target + "/shut"), 0700U);
  EXPECT_EQ(modeOf(m_target + "/shut/f"), 0600U);
}

TEST_F(Unzip, ReplacesFilesAndKeepsWhatTheArchiveDoesNotName) {
  putFile(m_target + "/harmless.txt", "older and longer", 0644);
  putFile(m_target + "/keys/other", "kept");
  ASSERT_EQ(unpack("good/tree"), 0);
  EXPECT_EQ(contentOf(m_target + "/harmless.txt"), "harmless");
  EXPECT_EQ(modeOf(m_target + "/harmless.txt"), 0600U);
  EXPECT_EQ(contentOf(m_target + "/keys/other"), "kept");
}

TEST_F(Unzip, ReplacesALinkThatWasPlantedUnderAnEntrysNameInsteadOfFollowingIt) {
  putFile("/tmp/victim", "untouched");
  fs::create_symlink("/tmp/victim", m_target + "/harmless.txt");
  ASSERT_EQ(unpack("good/tree"), 0);
  EXPECT_EQ(contentOf("/tmp/victim"), "untouched");
  EXPECT_FALSE(fs::is_symlink(m_target + "/harmless.txt"));
  EXPECT_EQ(contentOf(m_target + "/harmless.txt"), "harmless");
}

TEST_F(Unzip, WritesThroughNoHardLinkThatWasPlantedUnderAnEntrysName) {
  putFile("/tmp/victim", "untouched");
  fs::create_hard_link("/tmp/victim", m_target + "/harmless.txt");
  ASSERT_EQ(unpack("good/tree"), 0);
  EXPECT_EQ(contentOf("/tmp/victim"), "untouched");
}

TEST_F(Unzip, RefusesToGoThroughALinkThatWasPlantedAsADirectory) {
  putDirectory("/tmp/elsewhere");
  fs::create_symlink("/tmp/elsewhere", m_target + "/keys");
  const Tree before = treeOf("/tmp");
  EXPECT_EQ(unpack("good/tree"), -1);
  EXPECT_EQ(treeOf("/tmp"), before);
}

TEST_F(Unzip, RefusesAPipeThatWasPlantedAsADirectoryWithoutWaitingForIt) {
  ASSERT_EQ(::mkfifo((m_target + "/keys").c_str(), 0600), 0);
  EXPECT_EQ(unpack("good/tree"), -1);
  EXPECT_EQ(tests::namesIn(m_target), std::vector<std::string>{"keys"});
}

TEST_F(Unzip, RefusesWhenADirectoryStandsWhereAFileGoesAndTakesTheRestBack) {
  putFile(m_target + "/keys/k.bin/inside", "kept");
  const Tree before = treeOf("/tmp");
  EXPECT_EQ(unpack("good/tree"), -1);
  EXPECT_EQ(treeOf("/tmp"), before);
}

TEST_F(Unzip, FollowsALinkThatIsTheTargetDirectoryItself) {
  fs::create_symlink(m_target, "/tmp/way");
  EXPECT_EQ(::NsUnzip((archives() + "/good/tree.zip").c_str(), "/tmp/way"), 0);
  EXPECT_EQ(contentOf(m_target + "/keys/k.bin"), "top");
}

TEST_F(Unzip, LeavesNothingOnAFullDisk) {
  const std::string small = "/tmp/small";
  mountSmall(small, std::size_t{1} << 20);
  EXPECT_EQ(::NsUnzip((archives() + "/good/megabytes.zip").c_str(), small.c_str()), -1);
  EXPECT_TRUE(namesIn(small).empty());
}

TEST_F(Unzip, FailsOnAReadOnlyTarget) {
  mountReadOnly(m_target);
  EXPECT_EQ(unpack("good/tree"), -1);
  EXPECT_TRUE(namesIn(m_target).empty());
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

TEST_F(Unzip, MakesFilesThatAreNeverReadableByOthersWhateverTheUmask) {
  const mode_t before = ::umask(0);
  const int status = unpack("good/tree");
  ::umask(before);
  ASSERT_EQ(status, 0);
  EXPECT_EQ(modeOf(m_target + "/harmless.txt"), 0600U);
  EXPECT_EQ(modeOf(m_target + "/keys"), 0700U);
}

TEST_F(Unzip, UnpacksManyEntriesWithFewDescriptors) {
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
  const rlimit few{32, before.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &few), 0);
  const int status = unpack("good/many");
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(namesIn(m_target).size(), 1024U);
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
