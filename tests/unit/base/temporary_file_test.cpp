#include "base/temporary_file.h"

#include <fcntl.h>
#include <regex>
#include <set>
#include <unistd.h>

#include "support/private_device.h"

namespace kelt::base {
namespace {

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

 private:
  UniqueFd m_directory;
};

TEST_F(TemporaryFileTest, StandsBesideItsTargetForNobodyElseUnderANameThatShowsItsOrigin) {
  const mode_t before = ::umask(0);
  const auto file = TemporaryFile::create(directory(), "config.xml");
  ::umask(before);
  ASSERT_TRUE(file.ok());
  const Names names = namesIn("/tmp/d");
  ASSERT_EQ(names.size(), 1U);
  EXPECT_TRUE(std::regex_match(names[0], std::regex("\\.config\\.xml\\.kelt-[a-z2-7]{12}"))) << names[0];
  EXPECT_EQ(tests::modeOf("/tmp/d/" + names[0]), 0600U);
  EXPECT_EQ(::fcntl(file.value().fd(), F_GETFD), FD_CLOEXEC);
}

TEST_F(TemporaryFileTest, HasANewNameEachTime) {
  std::set<std::string> seen;
  for (int i = 0; i < 50; ++i) {
    const auto file = TemporaryFile::create(directory(), "f");
    ASSERT_TRUE(file.ok());
    seen.insert(namesIn("/tmp/d").at(0));
  }
  EXPECT_EQ(seen.size(), 50U);
}

TEST_F(TemporaryFileTest, GoesWithItsObject) {
  { ASSERT_TRUE(TemporaryFile::create(directory(), "f").ok()); }
  EXPECT_EQ(namesIn("/tmp/d"), Names{});
}

TEST_F(TemporaryFileTest, TakesTheNameOfItsTargetAndStays) {
  putFile("/tmp/d/f", "old");
  {
    auto file = TemporaryFile::create(directory(), "f");
    ASSERT_TRUE(file.ok());
    ASSERT_EQ(::write(file.value().fd(), "new", 3), 3);
    ASSERT_TRUE(file.value().renameTo("f").ok());
  }
  EXPECT_EQ(namesIn("/tmp/d"), Names{"f"});
  EXPECT_EQ(tests::contentOf("/tmp/d/f"), "new");
}

TEST_F(TemporaryFileTest, IsGoneWhenItCannotTakeTheName) {
  tests::putDirectory("/tmp/d/dir");
  {
    auto file = TemporaryFile::create(directory(), "dir");
    ASSERT_TRUE(file.ok());
    EXPECT_FALSE(file.value().renameTo("dir").ok());
  }
  EXPECT_EQ(namesIn("/tmp/d"), Names{"dir"});
}

TEST_F(TemporaryFileTest, CutsALongNameBetweenTwoCharacters) {
  std::string name;
  while (name.size() + 3 <= 255)
    name += "\xE2\x82\xAC";
  const auto file = TemporaryFile::create(directory(), name);
  ASSERT_TRUE(file.ok());
  const std::string made = namesIn("/tmp/d").at(0);
  EXPECT_LE(made.size(), 255U);
  EXPECT_GT(made.size(), 250U);
  EXPECT_EQ((made.size() - 1 - 18) % 3, 0U) << made;
}

TEST_F(TemporaryFileTest, StaysInItsDirectoryWhenThePathLeadsElsewhere) {
  auto file = TemporaryFile::create(directory(), "f");
  ASSERT_TRUE(file.ok());
  ASSERT_EQ(::rename("/tmp/d", "/tmp/moved"), 0);
  tests::putDirectory("/tmp/d");
  ASSERT_TRUE(file.value().renameTo("f").ok());
  EXPECT_EQ(namesIn("/tmp/moved"), Names{"f"});
  EXPECT_EQ(namesIn("/tmp/d"), Names{});
}

}  // namespace
}  // namespace kelt::base
