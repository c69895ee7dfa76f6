#include "base/file_place.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/child.h"
#include "support/private_device.h"

namespace kelt::base {
namespace {

using tests::putDirectory;
using tests::putFile;

/// Whether the place is that of the file at `path`.
bool bLeadsTo(const Place& place, const std::string& path) {
  struct stat here {};
  struct stat there {};
  return ::fstatat(place.directory.get(), place.name.c_str(), &here, AT_SYMLINK_NOFOLLOW) == 0 &&
         ::lstat(path.c_str(), &there) == 0 && here.st_ino == there.st_ino;
}

class FilePlace : public tests::PrivateDevice {
 protected:
  void SetUp() override {
    PrivateDevice::SetUp();
    putFile("/tmp/d/file", "x");
    putDirectory("/tmp/e");
    ASSERT_EQ(::symlink("../d/file", "/tmp/e/relative"), 0);
    ASSERT_EQ(::symlink("/tmp/d/file", "/tmp/e/absolute"), 0);
    ASSERT_EQ(::symlink("relative", "/tmp/e/beside"), 0);
    ASSERT_EQ(::symlink("/tmp/d/new", "/tmp/e/dangling"), 0);
  }

  static void expectRefused(const Result<Place>& place, const std::string& path) {
    ASSERT_FALSE(place.ok());
    EXPECT_EQ(place.error().kind, ErrorKind::kRefused);
    EXPECT_EQ(place.error().message, path + ": not a regular file");
  }
};

TEST_F(FilePlace, IsANameInAnOpenDirectory) {
  const auto place = openPlace("/tmp/d/file");
  ASSERT_TRUE(place.ok());
  EXPECT_EQ(place.value().name, "file");
  EXPECT_EQ(place.value().path, "/tmp/d/file");
  EXPECT_TRUE(place.value().bSyncable);
  EXPECT_EQ(::fcntl(place.value().directory.get(), F_GETFD), FD_CLOEXEC);
  EXPECT_TRUE(bLeadsTo(place.value(), "/tmp/d/file"));
}

TEST_F(FilePlace, OfALinkIsTheLinksOwn) {
  EXPECT_TRUE(bLeadsTo(openPlace("/tmp/e/absolute").value(), "/tmp/e/absolute"));
}

TEST_F(FilePlace, NeedsADirectoryThatIsThere) {
  EXPECT_EQ(openPlace("/tmp/none/file").error().kind, ErrorKind::kNotFound);
  EXPECT_EQ(openPlace("/tmp/none/file").error().message, "open /tmp/none: No such file or directory");
  EXPECT_EQ(openPlace("/tmp/d/file/file").error().kind, ErrorKind::kNotFound) << "ENOTDIR";
}

TEST_F(FilePlace, HasAName) {
  expectRefused(openPlace("/tmp/d/"), "/tmp/d/");
  expectRefused(openPlace(""), "");
}

TEST_F(FilePlace, MayBeginInAnOpenDirectoryWhateverBecomesOfItsPath) {
  const UniqueFd directory(::open("/tmp", O_PATH | O_DIRECTORY | O_CLOEXEC));
  ASSERT_EQ(::rename("/tmp/d", "/tmp/moved"), 0);
  const auto place = openPlace(directory.get(), "/called", "moved/file");
  ASSERT_TRUE(place.ok());
  EXPECT_EQ(place.value().path, "/called/moved/file");
  EXPECT_TRUE(bLeadsTo(place.value(), "/tmp/moved/file"));
  EXPECT_EQ(openPlace(directory.get(), "/", "moved/file").value().path, "/moved/file");
  EXPECT_EQ(openPlace(directory.get(), "/called", "/tmp/moved/file").value().path, "/tmp/moved/file");
  expectRefused(openPlace(directory.get(), "/called", "moved/"), "/called/moved/");
}

TEST_F(FilePlace, IsEnteredWhereItMayNotBeRead) {
  tests::expectInOwnProcess([] {
    ASSERT_EQ(::chmod("/tmp/d", 0300), 0);
    ASSERT_TRUE(tests::dropCapabilities());
    const auto place = openPlace("/tmp/d/file");
    ASSERT_TRUE(place.ok());
    EXPECT_FALSE(place.value().bSyncable);
    EXPECT_EQ(::faccessat(place.value().directory.get(), "file", F_OK, 0), 0);
  });
}

TEST_F(FilePlace, IsFollowedLinkByLink) {
  const auto first = openPlace("/tmp/e/beside");
  const auto second = followLink(first.value());
  ASSERT_TRUE(second.ok() && second.value());
  EXPECT_EQ(second.value()->path, "/tmp/e/relative");
  const auto third = followLink(*second.value());
  ASSERT_TRUE(third.ok() && third.value());
  EXPECT_EQ(third.value()->path, "/tmp/e/../d/file");
  EXPECT_TRUE(bLeadsTo(*third.value(), "/tmp/d/file"));
  const auto none = followLink(*third.value());
  EXPECT_TRUE(none.ok() && !none.value()) << "no link stands there";
  const auto missing = followLink(openPlace("/tmp/d/none").value());
  EXPECT_TRUE(missing.ok() && !missing.value());
}

TEST_F(FilePlace, IsFollowedFromTheDirectoryThatWasOpenedNotFromItsPath) {
  const auto place = openPlace("/tmp/e/beside");
  ASSERT_EQ(::rename("/tmp/e", "/tmp/moved"), 0);
  putFile("/tmp/e/relative", "planted");
  const auto next = followLink(place.value());
  ASSERT_TRUE(next.ok() && next.value());
  EXPECT_TRUE(bLeadsTo(*next.value(), "/tmp/moved/relative"));
}

TEST_F(FilePlace, IsFoundThroughLinksWhetherTheFileExistsOrNot) {
  for (const char* path : {"/tmp/d/file", "/tmp/e/relative", "/tmp/e/absolute", "/tmp/e/beside"}) {
    const auto place = findPlace(path);
    ASSERT_TRUE(place.ok()) << path;
    EXPECT_TRUE(bLeadsTo(place.value(), "/tmp/d/file")) << path;
  }
  EXPECT_EQ(findPlace("/tmp/e/dangling").value().path, "/tmp/d/new");
  ASSERT_EQ(::symlink("/tmp/none/file", "/tmp/e/nowhere"), 0);
  EXPECT_EQ(findPlace("/tmp/e/nowhere").error().kind, ErrorKind::kNotFound);
  ASSERT_EQ(::symlink("/tmp/d/", "/tmp/e/directory"), 0);
  expectRefused(findPlace("/tmp/e/directory"), "/tmp/d/");
}

TEST_F(FilePlace, IsFoundBehindFortyLinksAndNoMore) {
  const auto link = [](int number) { return "/tmp/e/link" + std::to_string(number); };
  ASSERT_EQ(::symlink("/tmp/d/file", link(1).c_str()), 0);
  for (int number = 2; number <= 41; ++number)
    ASSERT_EQ(::symlink(link(number - 1).c_str(), link(number).c_str()), 0);
  EXPECT_TRUE(bLeadsTo(findPlace(link(40)).value(), "/tmp/d/file"));
  const auto farther = findPlace(link(41));
  ASSERT_FALSE(farther.ok());
  EXPECT_EQ(farther.error().sysErrno, ELOOP);
}

TEST_F(FilePlace, GivesTheRegularFileThatStandsThere) {
  const auto existing = openExisting(openPlace("/tmp/d/file").value());
  ASSERT_TRUE(existing.ok());
  EXPECT_TRUE(existing.value().bValid());
  const auto none = openExisting(openPlace("/tmp/d/none").value());
  EXPECT_TRUE(none.ok() && !none.value());
  EXPECT_EQ(openExisting(openPlace("/tmp/e").value()).error().kind, ErrorKind::kRefused);
  EXPECT_EQ(openExisting(openPlace("/tmp/e/absolute").value()).error().kind, ErrorKind::kRefused) << "a link";
}

TEST(SyncDirectory, SyncsADirectoryAndNothingElse) {
  EXPECT_TRUE(syncDirectory("/tmp").ok());
  EXPECT_EQ(syncDirectory("/tmp/none").error().kind, ErrorKind::kNotFound);
  EXPECT_EQ(syncDirectory("/dev/null").error().kind, ErrorKind::kNotFound) << "ENOTDIR";
}

TEST(SyncDirectory, TakesAFileSystemThatCannotSyncADirectoryAsDone) {
  EXPECT_TRUE(syncDirectory("/proc").ok());
}

TEST(DirectoryOf, IsThePartBeforeTheLastSlash) {
  EXPECT_EQ(directoryOf("/a/b"), "/a");
  EXPECT_EQ(directoryOf("a/b"), "a");
  EXPECT_EQ(directoryOf("b"), ".");
  EXPECT_EQ(directoryOf("/b"), "/");
  EXPECT_EQ(directoryOf("/"), "/");
  EXPECT_EQ(directoryOf("a//b"), "a/");
}

}  // namespace
}  // namespace kelt::base
