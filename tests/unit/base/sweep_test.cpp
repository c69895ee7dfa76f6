#include "base/sweep.h"

#include <algorithm>
#include <filesystem>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/private_device.h"

namespace kelt::base {
namespace {

using tests::namesIn;
using tests::putDirectory;
using tests::putFile;

using Names = std::vector<std::string>;

constexpr const char* kLeft = "/tmp/d/.config.xml.kelt-abcdefgh2345";

class Sweep : public tests::PrivateDevice {
 protected:
  void SetUp() override {
    PrivateDevice::SetUp();
    putDirectory("/tmp/d");
  }
};

using Leftovers = Sweep;

TEST_F(Sweep, RemovesWhatARunLeftAndSaysWhat) {
  putFile(kLeft, "secret", 0600);
  putFile("/tmp/d/.k.kelt-222222222222", "");
  putFile("/tmp/d/config.xml", "kept");
  Names removed = sweepDirectory("/tmp/d");
  std::sort(removed.begin(), removed.end());
  EXPECT_EQ(removed, (Names{kLeft, "/tmp/d/.k.kelt-222222222222"}));
  EXPECT_EQ(namesIn("/tmp/d"), Names{"config.xml"});
}

TEST_F(Sweep, LeavesEveryNameThatIsNotExactlyOurs) {
  const Names others{".config.xml.kelt-abcdefgh234",
                     ".config.xml.kelt-abcdefgh23456",
                     ".config.xml.kelt-abcdefgh2341",
                     ".config.xml.kelt-Abcdefgh2345",
                     "config.xml.kelt-abcdefgh2345",
                     "..kelt-abcdefgh2345",
                     ".kelt-abcdefgh2345",
                     ".config.xml.kelt_abcdefgh2345",
                     ".config.xml.kelt-abcdefgh2345~",
                     ".config.xml.kelt-abcdefgh2345 ",
                     "x.config.xml.kelt-abcdefgh2345",
                     ".config.xml.kel-abcdefgh2345"};
  for (const std::string& name : others)
    putFile("/tmp/d/" + name, "kept");
  EXPECT_EQ(sweepDirectory("/tmp/d"), Names{});
  EXPECT_EQ(namesIn("/tmp/d").size(), others.size());
}

TEST_F(Sweep, LeavesLinksDirectoriesFifosAndFilesOfTwoNames) {
  putFile("/tmp/victim", "kept");
  std::filesystem::create_symlink("/tmp/victim", "/tmp/d/.a.kelt-aaaaaaaaaaaa");
  putDirectory("/tmp/d/.b.kelt-aaaaaaaaaaaa");
  ASSERT_EQ(::mkfifo("/tmp/d/.c.kelt-aaaaaaaaaaaa", 0600), 0);
  std::filesystem::create_hard_link("/tmp/victim", "/tmp/d/.d.kelt-aaaaaaaaaaaa");
  const Names before = namesIn("/tmp/d");
  EXPECT_EQ(sweepDirectory("/tmp/d"), Names{});
  EXPECT_EQ(namesIn("/tmp/d"), before);
  EXPECT_EQ(tests::contentOf("/tmp/victim"), "kept");
}

TEST_F(Sweep, LeavesFilesOfOthers) {
  putFile(kLeft, "planted");
  // A user namespace of one uid cannot give a file away, but what the machine's root owns is foreign in it.
  const bool bGiven = ::chown(kLeft, 65534, 65534) == 0;
  if (!bGiven) {
    ASSERT_EQ(::mount("/etc/passwd", kLeft, nullptr, MS_BIND, nullptr), 0);
  }
  EXPECT_EQ(sweepDirectory("/tmp/d"), Names{});
  if (!bGiven) {
    ASSERT_EQ(::umount2(kLeft, MNT_DETACH), 0);
  }
  EXPECT_TRUE(tests::exists(kLeft));
}

TEST_F(Sweep, DoesNotDescend) {
  putFile("/tmp/d/below/.k.kelt-222222222222", "kept");
  EXPECT_EQ(sweepDirectory("/tmp/d"), Names{});
  EXPECT_TRUE(tests::exists("/tmp/d/below/.k.kelt-222222222222"));
}

TEST_F(Sweep, FollowsALinkThatIsTheDirectoryItself) {
  putFile(kLeft, "secret");
  std::filesystem::create_symlink("/tmp/d", "/tmp/way");
  EXPECT_EQ(sweepDirectory("/tmp/way"), Names{"/tmp/way/.config.xml.kelt-abcdefgh2345"});
  EXPECT_EQ(namesIn("/tmp/d"), Names{});
}

TEST_F(Sweep, HasNothingToSayOfADirectoryThatIsNotThere) {
  putFile("/tmp/file", "");
  EXPECT_EQ(sweepDirectory("/tmp/none"), Names{});
  EXPECT_EQ(sweepDirectory("/tmp/file"), Names{});
  EXPECT_EQ(sweepDirectory(""), Names{});
}

TEST_F(Sweep, SaysNothingOfWhatItCannotRemove) {
  putFile(kLeft, "secret");
  tests::mountReadOnly("/tmp/d");
  EXPECT_EQ(sweepDirectory("/tmp/d"), Names{});
  EXPECT_TRUE(tests::exists(kLeft));
}

TEST_F(Leftovers, AreWhatASweepWouldRemoveAndStay) {
  putFile(kLeft, "secret", 0600);
  putFile("/tmp/d/config.xml", "kept");
  putDirectory("/tmp/d/.b.kelt-aaaaaaaaaaaa");
  const auto found = leftoversIn("/tmp/d", ::geteuid());
  ASSERT_TRUE(found.ok());
  EXPECT_EQ(found.value(), Names{".config.xml.kelt-abcdefgh2345"});
  EXPECT_TRUE(tests::exists(kLeft));
  EXPECT_EQ(leftoversIn("/tmp/d", ::geteuid() + 1).value(), Names{});
}

TEST_F(Leftovers, AreNotToldOfWhatCannotBeListed) {
  putFile("/tmp/file", "");
  EXPECT_EQ(leftoversIn("/tmp/none", 0).error().kind, ErrorKind::kNotFound);
  EXPECT_EQ(leftoversIn("/tmp/file", 0).error().kind, ErrorKind::kNotFound);
  ASSERT_EQ(::symlink("ring", "/tmp/ring"), 0);
  EXPECT_EQ(leftoversIn("/tmp/ring", 0).error().kind, ErrorKind::kSystem);
}

}  // namespace
}  // namespace kelt::base
