#include "base/fresh_file.h"

#include <csignal>
#include <filesystem>
#include <unistd.h>

#include "support/private_device.h"

namespace fs = std::filesystem;

namespace kelt::base {
namespace {

using tests::contentOf;
using tests::exists;
using tests::modeOf;
using tests::namesIn;
using tests::putDirectory;
using tests::putFile;

std::span<const unsigned char> bytesOf(const std::string& text) {
  return {reinterpret_cast<const unsigned char*>(text.data()), text.size()};
}

class FreshFileOf : public tests::PrivateDevice {
 protected:
  static bool made(const std::string& path, const std::string& text) { return makeFreshFile(path, text).ok(); }
};

TEST_F(FreshFileOf, MakesAFileThatOnlyItsOwnerReads) {
  const mode_t before = ::umask(0);
  EXPECT_TRUE(made("/tmp/key", "secret"));
  ::umask(before);
  EXPECT_EQ(contentOf("/tmp/key"), "secret");
  EXPECT_EQ(modeOf("/tmp/key"), 0600U);
  EXPECT_EQ(namesIn("/tmp"), std::vector<std::string>{"key"});
}

TEST_F(FreshFileOf, ReplacesAWorldReadableFileByAPrivateOne) {
  putFile("/tmp/key", "older and longer", 0666);
  EXPECT_TRUE(made("/tmp/key", "secret"));
  EXPECT_EQ(contentOf("/tmp/key"), "secret");
  EXPECT_EQ(modeOf("/tmp/key"), 0600U);
}

TEST_F(FreshFileOf, NeverFollowsALink) {
  putFile("/tmp/victim", "untouched");
  fs::create_symlink("/tmp/victim", "/tmp/key");
  EXPECT_TRUE(made("/tmp/key", "secret"));
  EXPECT_EQ(contentOf("/tmp/victim"), "untouched");
  EXPECT_FALSE(fs::is_symlink("/tmp/key"));
}

TEST_F(FreshFileOf, NeverMakesTheTargetOfADanglingLink) {
  fs::create_symlink("/etc/orv.d/planted", "/tmp/key");
  EXPECT_TRUE(made("/tmp/key", "secret"));
  EXPECT_FALSE(exists("/etc/orv.d/planted"));
}

TEST_F(FreshFileOf, NeverWritesThroughAHardLink) {
  putFile("/tmp/victim", "untouched");
  fs::create_hard_link("/tmp/victim", "/tmp/key");
  EXPECT_TRUE(made("/tmp/key", "secret"));
  EXPECT_EQ(contentOf("/tmp/victim"), "untouched");
}

TEST_F(FreshFileOf, IsNotSeenUnderItsNameBeforeItIsComplete) {
  putFile("/tmp/key", "old");
  auto file = FreshFile::create("/tmp/key");
  ASSERT_TRUE(file.ok());
  ASSERT_TRUE(file.value().write(bytesOf("new")).ok());
  EXPECT_EQ(contentOf("/tmp/key"), "old");
}

TEST_F(FreshFileOf, LeavesNothingWhenItIsNotPublished) {
  { auto file = FreshFile::create("/tmp/key"); }
  EXPECT_TRUE(namesIn("/tmp").empty());
}

TEST_F(FreshFileOf, RefusesANameThatADirectoryHas) {
  putDirectory("/tmp/key");
  const auto file = FreshFile::create("/tmp/key");
  ASSERT_FALSE(file.ok());
  EXPECT_EQ(file.error().kind, ErrorKind::kRefused);
  EXPECT_EQ(namesIn("/tmp"), std::vector<std::string>{"key"});
}

TEST_F(FreshFileOf, FailsWithoutADirectory) {
  const auto file = FreshFile::create("/tmp/missing/key");
  ASSERT_FALSE(file.ok());
  EXPECT_EQ(file.error().kind, ErrorKind::kNotFound);
}

TEST_F(FreshFileOf, LeavesTheOldFileOnAFullDisk) {
  tests::mountSmall("/tmp/small", 8192);
  putFile("/tmp/small/key", "old");
  EXPECT_FALSE(made("/tmp/small/key", std::string(100000, 'x')));
  EXPECT_EQ(contentOf("/tmp/small/key"), "old");
  EXPECT_EQ(namesIn("/tmp/small"), std::vector<std::string>{"key"});
}

TEST_F(FreshFileOf, HasNoNameWhileItIsFilled) {
  auto file = FreshFile::create("/tmp/key");
  ASSERT_TRUE(file.ok());
  ASSERT_TRUE(file.value().write(bytesOf("secret")).ok());
  EXPECT_TRUE(namesIn("/tmp").empty());
}

TEST_F(FreshFileOf, LeavesWhatItCannotReplaceAndNothingElse) {
  auto file = FreshFile::create("/tmp/key");
  ASSERT_TRUE(file.ok());
  putFile("/tmp/key/planted", "kept");
  EXPECT_FALSE(file.value().publish().ok());
  { const auto gone = std::move(file); }
  EXPECT_EQ(namesIn("/tmp"), std::vector<std::string>{"key"});
  EXPECT_EQ(contentOf("/tmp/key/planted"), "kept");
}

TEST_F(FreshFileOf, KeepsAnyModeThatTheUmaskWouldTake) {
  const mode_t before = ::umask(0777);
  EXPECT_TRUE(made("/tmp/key", "secret"));
  ::umask(before);
  EXPECT_EQ(modeOf("/tmp/key"), 0600U);
}

TEST_F(FreshFileOf, RefusesAPathThatNamesNoFile) {
  EXPECT_EQ(FreshFile::create("").error().kind, ErrorKind::kRefused);
  EXPECT_EQ(FreshFile::create("/tmp/").error().kind, ErrorKind::kRefused);
}

TEST_F(FreshFileOf, LetsSignalsWaitAsLongAsItLives) {
  const auto bBlocked = [](int signal) {
    sigset_t mask;
    ::sigprocmask(SIG_BLOCK, nullptr, &mask);
    return ::sigismember(&mask, signal) == 1;
  };
  {
    auto file = FreshFile::create("/tmp/key");
    ASSERT_TRUE(file.ok());
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
      EXPECT_TRUE(bBlocked(signal));
  }
  for (const int signal : {SIGINT, SIGTERM, SIGHUP})
    EXPECT_FALSE(bBlocked(signal));
}

}  // namespace
}  // namespace kelt::base
