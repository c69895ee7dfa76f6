#include "base/trusted_file.h"

#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

#include "support/private_device.h"

#include "base/file_read.h"

namespace kelt::base {
namespace {

using tests::putDirectory;
using tests::putFile;

constexpr const char* kDirectory = "/opt/Quorvane/place";
const std::string kFile = "/opt/Quorvane/place/file";

struct stat owned(uid_t uid, gid_t gid, mode_t mode) {
  struct stat info {};
  info.st_uid = uid;
  info.st_gid = gid;
  info.st_mode = S_IFREG | mode;
  return info;
}

TEST(Trust, IsInRootAndTheNamedOwner) {
  EXPECT_EQ(whyNotTrusted(owned(0, 0, 0644), {}), nullptr);
  EXPECT_STREQ(whyNotTrusted(owned(1000, 1000, 0644), {}), "belongs to somebody else");
  EXPECT_EQ(whyNotTrusted(owned(1000, 1000, 0644), {.owner = 1000}), nullptr);
  EXPECT_EQ(whyNotTrusted(owned(0, 0, 0644), {.owner = 1000}), nullptr);
  EXPECT_STREQ(whyNotTrusted(owned(1001, 1000, 0644), {.owner = 1000}), "belongs to somebody else");
}

TEST(Trust, EndsWhereOthersMayWrite) {
  for (const mode_t mode : {0646U, 0777U, 01777U, 0002U})
    EXPECT_STREQ(whyNotTrusted(owned(0, 0, mode), {}), "can be written by others") << std::oct << mode;
  for (const mode_t mode : {0644U, 0755U, 0664U, 0775U, 0555U})
    EXPECT_EQ(whyNotTrusted(owned(0, 50, mode), {}), nullptr) << std::oct << mode;
}

TEST(Trust, EndsWhereAGroupOtherThanTheOwnersMayWriteIfThatIsJudged) {
  const Trust strict{.owner = 1000, .bJudgesGroup = true};
  EXPECT_STREQ(whyNotTrusted(owned(0, 50, 0664), strict), "can be written by others");
  EXPECT_STREQ(whyNotTrusted(owned(1000, 100, 0775), strict), "can be written by others");
  EXPECT_STREQ(whyNotTrusted(owned(1000, 0, 0775), strict), "can be written by others");
  EXPECT_EQ(whyNotTrusted(owned(0, 50, 0644), strict), nullptr);
  EXPECT_EQ(whyNotTrusted(owned(0, 0, 0664), strict), nullptr) << "a plain build of root's with umask 002";
  EXPECT_EQ(whyNotTrusted(owned(1000, 1000, 0775), strict), nullptr) << "a plain build of a user's with umask 002";
}

TEST(Trust, IsInEveryFileWhereNothingIsJudged) {
  EXPECT_EQ(whyNotTrusted(owned(1000, 1000, 0777), {.bJudgesAnything = false}), nullptr);
}

class TrustedFile : public tests::PrivateDevice {
 protected:
  void SetUp() override {
    PrivateDevice::SetUp();
    putFile(kFile, "content");
  }

  static Result<OpenedFile> open(const Trust& trust = {}) { return openTrusted(AT_FDCWD, "", kFile, trust); }

  /// Puts a link to `target` in place of the file.
  static void putLink(const std::string& target) {
    ::unlink(kFile.c_str());
    ASSERT_EQ(::symlink(target.c_str(), kFile.c_str()), 0);
  }

  static void expectContent(const std::string& path, const std::string& content) {
    const auto opened = open();
    ASSERT_TRUE(opened.ok()) << opened.error().message;
    const auto bytes = readAll(opened.value().file.get(), path);
    EXPECT_EQ(std::string(bytes.value().begin(), bytes.value().end()), content);
    EXPECT_EQ(opened.value().path, path);
  }

  static void expectRefused(const std::string& message) {
    const auto opened = open();
    ASSERT_FALSE(opened.ok());
    EXPECT_EQ(opened.error().kind, ErrorKind::kRefused);
    EXPECT_EQ(opened.error().message, message);
  }
};

TEST_F(TrustedFile, IsOpenedForReadingAndForNoChild) {
  expectContent(kFile, "content");
  const auto opened = open();
  for (const int fd : {opened.value().file.get(), opened.value().directory.get()})
    EXPECT_EQ(::fcntl(fd, F_GETFD), FD_CLOEXEC);
  EXPECT_EQ(::fcntl(opened.value().file.get(), F_GETFL) & O_ACCMODE, O_RDONLY);
}

TEST_F(TrustedFile, IsFoundFromAnOpenDirectoryWhateverBecomesOfItsPath) {
  putFile("/opt/Quorvane/place/inner/file", "inner");
  const UniqueFd directory(::open(kDirectory, O_PATH | O_DIRECTORY | O_CLOEXEC));
  ASSERT_EQ(::rename(kDirectory, "/opt/Quorvane/moved"), 0);
  const auto opened = openTrusted(directory.get(), kDirectory, "inner/file", {});
  ASSERT_TRUE(opened.ok());
  EXPECT_EQ(opened.value().path, "/opt/Quorvane/place/inner/file");
}

TEST_F(TrustedFile, ThatIsMissingIsNotFound) {
  ASSERT_EQ(::unlink(kFile.c_str()), 0);
  EXPECT_EQ(open().error().kind, ErrorKind::kNotFound);
  putLink("/opt/Quorvane/place/nowhere");
  EXPECT_EQ(open().error().kind, ErrorKind::kNotFound);
  EXPECT_EQ(openTrusted(AT_FDCWD, "", "/opt/missing/file", {}).error().kind, ErrorKind::kNotFound);
  EXPECT_EQ(openTrusted(AT_FDCWD, "", "/tmp/file", {}).error().kind, ErrorKind::kNotFound);
}

TEST_F(TrustedFile, IsRefusedWhereOthersMayWriteToItOrToItsDirectory) {
  ASSERT_EQ(::chmod(kFile.c_str(), 0646), 0);
  expectRefused(kFile + ": can be written by others");
  ASSERT_EQ(::chmod(kFile.c_str(), 0644), 0);
  ASSERT_EQ(::chmod(kDirectory, 01777), 0);
  expectRefused("/opt/Quorvane/place: can be written by others");
  EXPECT_TRUE(open({.bJudgesAnything = false}).ok());
}

TEST_F(TrustedFile, IsRefusedWhereItIsSomebodyElses) {
  if (::chown(kDirectory, 65534, 65534) == 0) {
    expectRefused("/opt/Quorvane/place: belongs to somebody else");
    ASSERT_EQ(::chown(kDirectory, 0, 0), 0);
    ASSERT_EQ(::chown(kFile.c_str(), 65534, 65534), 0);
    expectRefused(kFile + ": belongs to somebody else");
    return;
  }
  // In a namespace of one user nothing can be given away, but what the machine's root owns is foreign there.
  putLink("/usr/bin/env");
  expectRefused("/usr/bin: belongs to somebody else");
  putLink("/machine/etc/passwd");
  expectRefused("/machine/etc/passwd: belongs to somebody else");
}

TEST_F(TrustedFile, IsOnlyARegularOne) {
  ASSERT_EQ(::unlink(kFile.c_str()), 0);
  putDirectory(kFile);
  expectRefused(kFile + ": is not a regular file");
  ASSERT_EQ(::rmdir(kFile.c_str()), 0);
  ASSERT_EQ(::mkfifo(kFile.c_str(), 0644), 0);
  expectRefused(kFile + ": is not a regular file");
  putLink("/dev/null");
  EXPECT_EQ(open().error().kind, ErrorKind::kRefused);
  putLink("/opt/");
  EXPECT_EQ(open().error().message, "/opt/: not a regular file");
}

TEST_F(TrustedFile, IsJudgedWhereALinkLeads) {
  putFile("/opt/Quorvane/place/sub/real", "real");
  for (const char* target : {"sub/real", "/opt/Quorvane/place/sub/real", "../place/sub/real", "./sub//real"}) {
    putLink(target);
    const auto opened = open();
    ASSERT_TRUE(opened.ok()) << target << " " << opened.error().message;
    EXPECT_EQ(opened.value().name, "real");
  }
  ASSERT_EQ(::chmod("/opt/Quorvane/place/sub", 0777), 0);
  putLink("/opt/Quorvane/place/sub/real");
  expectRefused("/opt/Quorvane/place/sub: can be written by others");
  putLink("sub/real");
  expectRefused("/opt/Quorvane/place/sub: can be written by others");
}

TEST_F(TrustedFile, IsRefusedWhereALinkLeadsThroughADirectoryThatOthersMayWriteTo) {
  putFile("/opt/Quorvane/place/sub/real", "real");
  ASSERT_EQ(::symlink("/opt/Quorvane/place/sub/real", "/tmp/between"), 0);
  putLink("/tmp/between");
  expectRefused("/tmp: can be written by others");
}

TEST_F(TrustedFile, IsFollowedThroughALinkBesideIt) {
  putFile("/opt/Quorvane/place/beside", "beside");
  putLink("beside");
  expectContent("/opt/Quorvane/place/beside", "beside");
}

TEST_F(TrustedFile, IsFollowedThroughFortyLinksAndNoMore) {
  const auto linkName = [](int number) { return "link" + std::to_string(number); };
  putFile("/opt/Quorvane/place/link0", "far");
  for (int number = 1; number < 40; ++number)
    ASSERT_EQ(::symlink(linkName(number - 1).c_str(), ("/opt/Quorvane/place/" + linkName(number)).c_str()), 0);
  putLink(linkName(39));
  expectContent("/opt/Quorvane/place/link0", "far");
  ASSERT_EQ(::unlink("/opt/Quorvane/place/link0"), 0);
  putFile("/opt/Quorvane/place/farther", "farther");
  ASSERT_EQ(::symlink("farther", "/opt/Quorvane/place/link0"), 0);
  expectRefused(kFile + ": is behind too many symbolic links");
}

TEST_F(TrustedFile, IsRefusedBehindEndlessLinks) {
  putLink("file");
  expectRefused(kFile + ": is behind too many symbolic links");
}

}  // namespace
}  // namespace kelt::base
