#include "helper/product_directories.h"

#include <algorithm>
#include <cstdio>
#include <sys/stat.h>
#include <unistd.h>

#include "support/private_device.h"

using kelt::helper::ConfigDirState;
using kelt::helper::judgeConfigDir;
using kelt::helper::ProductDirectories;
using kelt::tests::putDirectory;
using kelt::tests::putFile;

namespace {

class ProductListing : public kelt::tests::PrivateDevice {};

TEST_F(ProductListing, GivesEveryDirectoryOnceAndNothingElse) {
  for (const char* name : {"A", ".hidden", "C"})
    putDirectory(std::string("/etc/orv.d/") + name);
  putFile("/etc/orv.d/file", "");
  ProductDirectories directories("/etc/orv.d");
  std::vector<std::string> names;
  while (auto name = directories.next())
    names.push_back(*name);
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (std::vector<std::string>{".hidden", "A", "C"}));
  EXPECT_FALSE(directories.next());
}

TEST_F(ProductListing, GivesNothingOfADirectoryThatIsNotThere) {
  ProductDirectories directories("/etc/missing");
  EXPECT_FALSE(directories.bOpen());
  EXPECT_FALSE(directories.next());
  EXPECT_EQ(judgeConfigDir(directories, "/etc/missing"), ConfigDirState::kInaccessible);
}

TEST_F(ProductListing, JudgesTheDirectoryThatWasOpened) {
  const ProductDirectories directories("/etc/orv.d");
  EXPECT_EQ(judgeConfigDir(directories, "/etc/orv.d"), ConfigDirState::kUsable);
  ASSERT_EQ(::chmod("/etc/orv.d", 0777), 0);
  ASSERT_EQ(::rename("/etc/orv.d", "/etc/moved"), 0);
  putDirectory("/etc/orv.d");
  EXPECT_EQ(judgeConfigDir(directories, "/etc/orv.d"), ConfigDirState::kWritableByOthers);
  ASSERT_EQ(::rmdir("/etc/moved"), 0);
}

}  // namespace
