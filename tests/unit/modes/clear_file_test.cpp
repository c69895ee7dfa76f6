#include "modes/clear_file.h"

#include "installation.h"

namespace kelt::modes {
namespace {

using tests::outputOf;
using tests::putDirectory;
using tests::putFile;

class ClearFile : public tests::PrivateDevice {
 protected:
  /// What became of /tmp/file, and what was said.
  static std::pair<Cleared, std::string> cleared() {
    Cleared outcome{};
    const auto printed = outputOf([&] { outcome = clearFile({"/tmp/file", "Inaccessible, ", "Not deleted, "}); });
    return {outcome, printed.out};
  }
};

TEST_F(ClearFile, SaysNothingOfAFileThatIsNotThereOrGoes) {
  EXPECT_EQ(cleared(), std::pair(Cleared::kAbsent, std::string()));
  putFile("/tmp/file", "content");
  EXPECT_EQ(cleared(), std::pair(Cleared::kDeleted, std::string()));
  EXPECT_FALSE(tests::exists("/tmp/file"));
}

TEST_F(ClearFile, SaysWhatCannotBeExaminedAndWhatCannotBeDeleted) {
  tests::putLoop("/tmp/file");
  EXPECT_EQ(cleared(), std::pair(Cleared::kFailed, std::string("Inaccessible, /tmp/file\n")));
  ASSERT_TRUE(deleteOrComplain("/tmp/file", "Not deleted, "));
  putDirectory("/tmp/file");
  EXPECT_EQ(cleared(), std::pair(Cleared::kFailed, std::string("Not deleted, /tmp/file\n")));
}

TEST_F(ClearFile, KnowsWhereTheAgentCachesItsServer) {
  EXPECT_EQ(serverSiteList().path, "/opt/Quorvane/orv/scratch//ServerSiteList.xml");
  EXPECT_EQ(siteCache().path, "/opt/Quorvane/orv/scratch/etc/sitecache.bin");
}

}  // namespace
}  // namespace kelt::modes
