#include "base/temporary_file.h"

#include <fcntl.h>
#include <filesystem>
#include <regex>
#include <set>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/private_device.h"

namespace kelt::base {
namespace {

using tests::contentOf;
using tests::namesIn;
using tests::putFile;

using Names = std::vector<std::string>;

class TemporaryFileTest : public tests::PrivateDevice {
 protected:
  void SetUp() override {
    PrivateDevice::SetUp();
    tests::putDirectory("/tmp/d");
    m_directory.reset(::open("/tmp/d", O_PATH | O_DIRECTORY | O_CLOEXEC));
    ASSERT_TRUE(m_directory.bValid());
  }
  [[nodiscard]] int directory() const { return m_directory.get(); }

  /// A file that is ready to be renamed.
  [[nodiscard]] TemporaryFile settledFile(std::string_view content) const {
    auto file = TemporaryFile::create(directory(), "f");
    EXPECT_TRUE(file.ok());
    const ssize_t written = ::write(file.value().fd(), content.data(), content.size());
    EXPECT_EQ(written, static_cast<ssize_t>(content.size()));
    EXPECT_TRUE(file.value().settle().ok());
    return std::move(file).value();
  }

 private:
  UniqueFd m_directory;
};

/// The same where /proc is missing, by which a file without a name is found.
class TemporaryFileWithoutProc : public TemporaryFileTest {
 protected:
  void SetUp() override {
    TemporaryFileTest::SetUp();
    ASSERT_EQ(::mount("none", "/proc", "tmpfs", 0, nullptr), 0);
  }
  void TearDown() override { EXPECT_EQ(::umount2("/proc", MNT_DETACH), 0); }
};

TEST_F(TemporaryFileTest, HasNoNameUntilItIsSettled) {
  const mode_t before = ::umask(0);
  auto file = TemporaryFile::create(directory(), "config.xml");
  ::umask(before);
  ASSERT_TRUE(file.ok());
  EXPECT_EQ(namesIn("/tmp/d"), Names{});
  EXPECT_EQ(::fcntl(file.value().fd(), F_GETFD), FD_CLOEXEC);
  ASSERT_TRUE(file.value().settle().ok());
  EXPECT_EQ(file.value().fd(), -1);
  const Names names = namesIn("/tmp/d");
  ASSERT_EQ(names.size(), 1U);
  EXPECT_TRUE(std::regex_match(names[0], std::regex("\\.config\\.xml\\.kelt-[a-z2-7]{12}"))) << names[0];
  EXPECT_TRUE(bTemporaryName(names[0]));
  EXPECT_EQ(tests::modeOf("/tmp/d/" + names[0]), 0600U);
}

TEST_F(TemporaryFileWithoutProc, HasItsNameFromTheStart) {
  const mode_t before = ::umask(0);
  auto file = TemporaryFile::create(directory(), "config.xml");
  ::umask(before);
  ASSERT_TRUE(file.ok());
  const Names names = namesIn("/tmp/d");
  ASSERT_EQ(names.size(), 1U);
  EXPECT_TRUE(std::regex_match(names[0], std::regex("\\.config\\.xml\\.kelt-[a-z2-7]{12}"))) << names[0];
  EXPECT_EQ(tests::modeOf("/tmp/d/" + names[0]), 0600U);
  EXPECT_EQ(::fcntl(file.value().fd(), F_GETFD), FD_CLOEXEC);
  ASSERT_EQ(::write(file.value().fd(), "new", 3), 3);
  ASSERT_TRUE(file.value().settle().ok());
  EXPECT_EQ(namesIn("/tmp/d"), names);
  ASSERT_TRUE(file.value().renameTo("f").ok());
  EXPECT_EQ(contentOf("/tmp/d/f"), "new");
  EXPECT_EQ(namesIn("/tmp/d"), Names{"f"});
}

TEST_F(TemporaryFileWithoutProc, GoesWithItsObject) {
  { ASSERT_TRUE(TemporaryFile::create(directory(), "f").ok()); }
  EXPECT_EQ(namesIn("/tmp/d"), Names{});
}

TEST_F(TemporaryFileTest, HasANewNameEachTime) {
  std::set<std::string> seen;
  for (int i = 0; i < 50; ++i) {
    auto file = TemporaryFile::create(directory(), "f");
    ASSERT_TRUE(file.ok());
    ASSERT_TRUE(file.value().settle().ok());
    seen.insert(namesIn("/tmp/d").at(0));
  }
  EXPECT_EQ(seen.size(), 50U);
}

TEST_F(TemporaryFileTest, GoesWithItsObject) {
  {
    auto file = TemporaryFile::create(directory(), "f");
    ASSERT_TRUE(file.ok());
    ASSERT_TRUE(file.value().settle().ok());
    EXPECT_EQ(namesIn("/tmp/d").size(), 1U);
    const auto moved = std::move(file);
    EXPECT_EQ(namesIn("/tmp/d").size(), 1U);
  }
  EXPECT_EQ(namesIn("/tmp/d"), Names{});
}

TEST_F(TemporaryFileTest, TakesTheNameOfItsTargetAndStays) {
  putFile("/tmp/d/f", "old");
  {
    auto file = TemporaryFile::create(directory(), "f");
    ASSERT_TRUE(file.ok());
    ASSERT_EQ(::write(file.value().fd(), "new", 3), 3);
    ASSERT_TRUE(file.value().settle().ok());
    EXPECT_EQ(contentOf("/tmp/d/f"), "old");
    ASSERT_TRUE(file.value().renameTo("f").ok());
  }
  EXPECT_EQ(namesIn("/tmp/d"), Names{"f"});
  EXPECT_EQ(contentOf("/tmp/d/f"), "new");
}

TEST_F(TemporaryFileTest, IsGoneWhenItCannotTakeTheName) {
  tests::putDirectory("/tmp/d/dir");
  {
    auto file = TemporaryFile::create(directory(), "dir");
    ASSERT_TRUE(file.ok());
    ASSERT_TRUE(file.value().settle().ok());
    EXPECT_FALSE(file.value().renameTo("dir").ok());
  }
  EXPECT_EQ(namesIn("/tmp/d"), Names{"dir"});
}

TEST_F(TemporaryFileTest, ExchangesItsPlaceWithAnotherFileThatGoesWithIt) {
  putFile("/tmp/d/f", "old");
  {
    auto file = settledFile("new");
    ASSERT_TRUE(file.exchangeWith("f").ok());
    EXPECT_EQ(contentOf("/tmp/d/f"), "new");
    EXPECT_EQ(namesIn("/tmp/d").size(), 2U);
  }
  EXPECT_EQ(namesIn("/tmp/d"), Names{"f"});
  EXPECT_EQ(contentOf("/tmp/d/f"), "new");
}

TEST_F(TemporaryFileTest, PutsBackWhatItWasExchangedFor) {
  putFile("/tmp/d/f", "old", 0640);
  {
    auto file = settledFile("new");
    ASSERT_TRUE(file.exchangeWith("f").ok());
    EXPECT_TRUE(file.putBack("f"));
  }
  EXPECT_EQ(namesIn("/tmp/d"), Names{"f"});
  EXPECT_EQ(contentOf("/tmp/d/f"), "old");
  EXPECT_EQ(tests::modeOf("/tmp/d/f"), 0640U);
}

TEST_F(TemporaryFileTest, KeepsAnotherFileToPutItBack) {
  putFile("/tmp/d/f", "old");
  std::filesystem::create_symlink("nowhere", "/tmp/d/link");
  {
    auto file = TemporaryFile::keep(directory(), "f");
    auto link = TemporaryFile::keep(directory(), "link");
    ASSERT_TRUE(file.ok() && link.ok());
    putFile("/tmp/d/new", "new");
    ASSERT_EQ(::rename("/tmp/d/new", "/tmp/d/f"), 0);
    ASSERT_EQ(::unlink("/tmp/d/link"), 0);
    EXPECT_TRUE(file.value().putBack("f"));
    EXPECT_TRUE(link.value().putBack("link"));
  }
  EXPECT_EQ(namesIn("/tmp/d"), (Names{"f", "link"}));
  EXPECT_EQ(contentOf("/tmp/d/f"), "old");
  EXPECT_EQ(std::filesystem::read_symlink("/tmp/d/link"), "nowhere");
}

TEST_F(TemporaryFileTest, LeavesWhatItCannotPutBack) {
  putFile("/tmp/d/f", "old");
  {
    auto file = settledFile("new");
    ASSERT_TRUE(file.exchangeWith("f").ok());
    ASSERT_EQ(::unlink("/tmp/d/f"), 0);
    tests::putDirectory("/tmp/d/f");
    EXPECT_FALSE(file.putBack("f"));
  }
  EXPECT_EQ(namesIn("/tmp/d").size(), 2U);
  EXPECT_EQ(contentOf("/tmp/d/" + namesIn("/tmp/d")[0]), "old");
}

TEST_F(TemporaryFileTest, ExchangesNothingForNothing) {
  EXPECT_EQ(settledFile("new").exchangeWith("f").error().kind, ErrorKind::kNotFound);
  EXPECT_FALSE(tests::exists("/tmp/d/f"));
}

TEST_F(TemporaryFileTest, CutsALongNameBetweenTwoCharacters) {
  std::string name;
  while (name.size() + 3 <= 255)
    name += "\xE2\x82\xAC";
  auto file = TemporaryFile::create(directory(), name);
  ASSERT_TRUE(file.ok());
  ASSERT_TRUE(file.value().settle().ok());
  const std::string made = namesIn("/tmp/d").at(0);
  EXPECT_LE(made.size(), 255U);
  EXPECT_GT(made.size(), 250U);
  EXPECT_EQ((made.size() - 1 - 18) % 3, 0U) << made;
  EXPECT_TRUE(bTemporaryName(made));
}

TEST_F(TemporaryFileTest, StaysInItsDirectoryWhenThePathLeadsElsewhere) {
  auto file = TemporaryFile::create(directory(), "f");
  ASSERT_TRUE(file.ok());
  ASSERT_EQ(::rename("/tmp/d", "/tmp/moved"), 0);
  tests::putDirectory("/tmp/d");
  ASSERT_TRUE(file.value().settle().ok());
  ASSERT_TRUE(file.value().renameTo("f").ok());
  EXPECT_EQ(namesIn("/tmp/moved"), Names{"f"});
  EXPECT_EQ(namesIn("/tmp/d"), Names{});
}

TEST_F(TemporaryFileTest, TellsADirectoryThatIsGone) {
  ASSERT_EQ(::rmdir("/tmp/d"), 0);
  auto file = TemporaryFile::create(directory(), "f");
  const Status done = file.ok() ? file.value().settle() : Status(file.error());  // file systems tell early or late
  ASSERT_FALSE(done.ok());
  EXPECT_EQ(done.error().kind, ErrorKind::kNotFound);
}

}  // namespace
}  // namespace kelt::base
