// What the managed switch deletes at its end, in which order, and when it deletes nothing.

#include <sys/mount.h>
#include <unistd.h>

#include "fake_server.h"
#include "switch_from_source.h"
#include "switch_under_test.h"

using kelt::tests::contentOf;
using kelt::tests::exists;
using kelt::tests::kInstalled;
using kelt::tests::kInstalledSiteList;
using kelt::tests::kKeyNames;
using kelt::tests::kServerSiteList;
using kelt::tests::kSiteCache;
using kelt::tests::namesIn;
using kelt::tests::putDirectory;
using kelt::tests::putFile;
using kelt::tests::treeOf;
using Names = std::vector<std::string>;

namespace {

/// Mount points while it lives: such a file can be read and written where it stands, but not deleted.
class Undeletable {
 public:
  explicit Undeletable(Names paths) : m_paths(std::move(paths)) {
    for (const std::string& path : m_paths)
      EXPECT_EQ(::mount(path.c_str(), path.c_str(), nullptr, MS_BIND, nullptr), 0) << path;
  }
  Undeletable(const Undeletable&) = delete;
  Undeletable& operator=(const Undeletable&) = delete;
  ~Undeletable() {
    for (const std::string& path : m_paths)
      ::umount2(path.c_str(), MNT_DETACH);
  }

 private:
  Names m_paths;
};

class ManagedModeDeletions : public kelt::tests::SwitchFromSource {
 protected:
  /// Switches with files that were fetched from the server into /tmp/k; what was printed.
  static std::string runProvisioned(int status) {
    kelt::tests::SwitchUnderTest helper;
    kelt::tests::fakeServer() = {};
    const auto printed = kelt::tests::outputOf([&] {
      EXPECT_EQ(helper.PrepareORV(true, true, L"/tmp/k", L"/tmp", false, L"", false, true, L"", L"", L""), status);
    });
    EXPECT_EQ(printed.err, "");
    return printed.out;
  }

  static Names allIn(const std::string& directory, const Names& names) {
    Names paths;
    for (const std::string& name : names)
      paths.push_back(directory + "/" + name);
    return paths;
  }
};

TEST_F(ManagedModeDeletions, GoThroughTheFetchedFilesInTheOrderInWhichTheyWereCopied) {
  Names all = kKeyNames;
  all.emplace_back("SiteList.xml");
  std::string printed;
  {
    const Undeletable stuck(allIn("/tmp/k", all));
    printed = runProvisioned(1);
  }
  EXPECT_EQ(printed,
            "Error : Failed to delete file, /tmp/k/SiteList.xml\n"
            "Error : Failed to delete file, /tmp/k/reqseckey.bin\n"
            "Error : Failed to delete file, /tmp/k/req2048seckey.bin\n"
            "Error : Failed to delete file, /tmp/k/agentfipsmode\n"
            "Error : Failed to delete file, /tmp/k/srpubkey.bin\n"
            "Error : Failed to delete file, /tmp/k/sr2048pubkey.bin\n");
  for (const std::string& name : kKeyNames)
    EXPECT_EQ(contentOf(kInstalled + "/" + name), name) << "the switch itself was done";
}

TEST_F(ManagedModeDeletions, TakeTheCopiesBackInTheOrderInWhichTheyWereMade) {
  putDirectory(kInstalled + "/agentfipsmode");  // cannot be replaced
  Names stuckFiles = allIn(kInstalled, {"req2048seckey.bin", "reqseckey.bin", "sr2048pubkey.bin", "srpubkey.bin"});
  for (const std::string& path : stuckFiles)
    putFile(path, "installed before");
  stuckFiles.emplace_back("/tmp/k/SiteList.xml");
  std::string printed;
  {
    const Undeletable stuck(stuckFiles);
    printed = run(false);
  }
  EXPECT_EQ(printed,
            "Error : Failed to copy key file, /tmp/k/agentfipsmode\n"
            "Error : Failed to delete file, /tmp/k/SiteList.xml\n"
            "Error : Failed to delete file, /opt/Quorvane/orv//reqseckey.bin\n"
            "Error : Failed to delete file, /opt/Quorvane/orv//req2048seckey.bin\n"
            "Error : Failed to delete file, /opt/Quorvane/orv//srpubkey.bin\n"
            "Error : Failed to delete file, /opt/Quorvane/orv//sr2048pubkey.bin\n");
}

TEST_F(ManagedModeDeletions, TakeOldKeysAwayTooForASiteListWithoutSites) {
  // The keys are copied first, over those of the earlier server, and what was copied is taken back.
  putFile("/tmp/k/SiteList.xml", "<ns:SiteLists><Other/></ns:SiteLists>");
  for (const std::string& name : kKeyNames)
    putFile(kInstalled + "/" + name, "installed before");
  const auto source = treeOf("/tmp/k");
  EXPECT_EQ(run(false), "");
  EXPECT_EQ(namesIn(kInstalled), Names{"scratch"});
  EXPECT_EQ(treeOf("/tmp/k"), source);
}

TEST_F(ManagedModeDeletions, SpareFetchedFilesWhoseSiteListDoesNotLoad) {
  putFile("/tmp/k/SiteList.xml", "<ns:SiteLists>");
  const auto installed = treeOf("/opt/Quorvane");
  const auto source = treeOf("/tmp/k");
  EXPECT_TRUE(runProvisioned(1).ends_with("Error : Fail to load sitelist file\n"));
  EXPECT_EQ(treeOf("/tmp/k"), source);
  EXPECT_EQ(treeOf("/opt/Quorvane"), installed);
}

TEST_F(ManagedModeDeletions, SpareFetchedFilesWhoseSiteListCannotBeCopied) {
  putDirectory(kInstalledSiteList);
  const auto installed = treeOf("/opt/Quorvane");
  const auto source = treeOf("/tmp/k");
  EXPECT_EQ(runProvisioned(1), "Error : Failed to copy sitelist file.\n\n");
  EXPECT_EQ(treeOf("/tmp/k"), source);
  EXPECT_EQ(treeOf("/opt/Quorvane"), installed);
  EXPECT_TRUE(exists(kServerSiteList) && exists(kSiteCache));
}

}  // namespace
