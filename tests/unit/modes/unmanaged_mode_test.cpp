#include "modes/unmanaged_mode.h"

#include <unistd.h>

#include "installation.h"

#include "helper/unix_command_line_helper.h"

using kelt::tests::contentOf;
using kelt::tests::exists;
using kelt::tests::kInstalled;
using kelt::tests::kInstalledSiteList;
using kelt::tests::kServerSiteList;
using kelt::tests::kSiteCache;
using kelt::tests::namesIn;
using kelt::tests::putDirectory;
using kelt::tests::putFile;
using kelt::tests::putLoop;
using kelt::tests::treeOf;
using Names = std::vector<std::string>;

namespace {

const std::string kMark = kInstalled + "/scratch/unfinished-work";
const std::string kWithoutServer = "<ns:SiteLists><SiteList/></ns:SiteLists>";
const std::string kDeclaration = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";

/// Element and text, without the blanks between elements, which may stay or go with an element.
std::string withoutBlankText(const std::string& xml) {
  std::string out;
  for (std::size_t i = 0; i < xml.size(); ++i) {
    const bool bBlank = xml[i] == ' ' || xml[i] == '\n';
    const bool bAfterTag = !out.empty() && out.back() == '>';
    if (!(bBlank && bAfterTag)) out += xml[i];
  }
  return out;
}

class UnmanagedMode : public kelt::tests::Installation {
 protected:
  void SetUp() override {
    Installation::SetUp();
    for (const std::string& name : kelt::tests::kKeyNames)
      putFile(kInstalled + "/" + name, name, 0600);
    putFile(kInstalledSiteList, kelt::tests::kSiteListWithServer, 0640);
  }

  static std::string run(bool result) {
    kelt::helper::unixCommandLineHelper helper;
    const auto printed = kelt::tests::outputOf([&] { EXPECT_EQ(helper.PrepareORVForUnmanagedMode(), result); });
    EXPECT_EQ(printed.err, "");
    return printed.out;
  }

  static void putMark() { putFile(kMark, "work=unmanaged-switch\n", 0600); }

  /// What finishing the switch of an earlier run says.
  static std::string finish() {
    const auto printed = kelt::tests::outputOf([] {
      kelt::helper::WorkMark mark;
      kelt::modes::finishUnmanagedSwitch(mark);
    });
    return printed.out + printed.err;
  }

  static bool bServerDataThere() {
    return exists(kServerSiteList) && exists(kSiteCache) && exists(kInstalled + "/reqseckey.bin") &&
           exists(kInstalled + "/srpubkey.bin");
  }

  static void expectServerRemoved() {
    EXPECT_EQ(withoutBlankText(contentOf(kInstalledSiteList)),
              kDeclaration +
                  "<ns:SiteLists xmlns:ns=\"urn:test:site-list\"><SiteList Default=\"1\"></SiteList></ns:SiteLists>");
  }
};

TEST_F(UnmanagedMode, RemovesTheServerItsLegacyKeysAndTheCaches) {
  EXPECT_EQ(run(true), "");
  expectServerRemoved();
  EXPECT_EQ(namesIn(kInstalled), (Names{"agentfipsmode", "req2048seckey.bin", "scratch", "sr2048pubkey.bin"}));
  EXPECT_EQ(namesIn(kInstalled + "/scratch"), Names{"etc"});
  EXPECT_EQ(namesIn(kInstalled + "/scratch/etc"), Names{"SiteList.xml"});
  EXPECT_EQ(kelt::tests::modeOf(kInstalledSiteList), 0640U);
  for (const std::string name : {"agentfipsmode", "req2048seckey.bin", "sr2048pubkey.bin"}) {
    EXPECT_EQ(contentOf(kInstalled + "/" + name), name);
  }
}

TEST_F(UnmanagedMode, RemovesEveryServerAndKeepsTheRestOfTheDocument) {
  putFile(kInstalledSiteList,
          kDeclaration +
              "<!-- head --><ns:SiteLists a=\"1\"><Before/><SiteList b=\"2\"><!-- in --><SpipeSite ServerIP=\"1\"/>"
              "<HttpSite/><SpipeSite><Path>x</Path></SpipeSite><![CDATA[<SpipeSite/>]]><SpipeSite/>tail</SiteList>"
              "<SiteList><SpipeSite Name=\"of another list\"/></SiteList><SpipeSite/></ns:SiteLists>");
  EXPECT_EQ(run(true), "");
  EXPECT_EQ(withoutBlankText(contentOf(kInstalledSiteList)),
            kDeclaration +
                "<!-- head --><ns:SiteLists a=\"1\"><Before/><SiteList b=\"2\"><!-- in --><HttpSite/>"
                "<![CDATA[<SpipeSite/>]]>tail</SiteList><SiteList><SpipeSite Name=\"of another list\"/></SiteList>"
                "<SpipeSite/></ns:SiteLists>");
}

TEST_F(UnmanagedMode, LeavesAnAgentAloneThatHasNoServers) {
  for (const std::string content :
       {"<ns:SiteLists><SiteList/></ns:SiteLists>", "<ns:SiteLists/>", "<ns:SiteLists><SpipeSite/></ns:SiteLists>"}) {
    putFile(kInstalledSiteList, content);
    const auto before = treeOf("/opt/Quorvane");
    EXPECT_EQ(run(true), "") << content;
    EXPECT_EQ(treeOf("/opt/Quorvane"), before);
  }
}

TEST_F(UnmanagedMode, FailsWithoutAnInstalledSiteList) {
  ASSERT_EQ(::unlink(kInstalledSiteList.c_str()), 0);
  const auto before = treeOf("/opt/Quorvane");
  EXPECT_EQ(run(false), "Error : For unmanaged mode, sitelist file not found for processing.\n");
  EXPECT_EQ(treeOf("/opt/Quorvane"), before);
}

TEST_F(UnmanagedMode, FailsWhenTheInstalledSiteListCannotBeExamined) {
  putLoop(kInstalledSiteList);
  const auto before = treeOf("/opt/Quorvane");
  EXPECT_EQ(run(false), "Error : Accessing sitelist file, /opt/Quorvane/orv/scratch/etc/SiteList.xml\n");
  EXPECT_EQ(treeOf("/opt/Quorvane"), before);
}

TEST_F(UnmanagedMode, FailsWhenTheInstalledSiteListDoesNotLoad) {
  const std::string latin1 = "<ns:SiteLists><SiteList><SpipeSite Name=\"\xE9\"/></SiteList></ns:SiteLists>";
  for (const std::string& content :
       {std::string(), std::string("<ns:SiteLists>"), std::string("<SiteLists/>"), latin1}) {
    putFile(kInstalledSiteList, content);
    const auto before = treeOf("/opt/Quorvane");
    EXPECT_EQ(run(false), "Error : For unmanaged mode, sitelist file failed to load.\n");
    EXPECT_EQ(treeOf("/opt/Quorvane"), before);
  }
}

TEST_F(UnmanagedMode, NeedsNoKeysAndNoCaches) {
  for (const std::string& path :
       {kServerSiteList, kSiteCache, kInstalled + "/reqseckey.bin", kInstalled + "/srpubkey.bin"}) {
    ASSERT_EQ(::unlink(path.c_str()), 0);
  }
  EXPECT_EQ(run(true), "");
  expectServerRemoved();
}

TEST_F(UnmanagedMode, ReportsWhatCannotBeDeletedAndGoesOn) {
  const std::vector<std::pair<std::string, std::string>> cases{
      {kInstalled + "/reqseckey.bin", "Error : Failed to delete key file, /opt/Quorvane/orv//reqseckey.bin\n"},
      {kInstalled + "/srpubkey.bin", "Error : Failed to delete key file, /opt/Quorvane/orv//srpubkey.bin\n"},
      {kServerSiteList, "Error : Failed to delete sitelist file, /opt/Quorvane/orv/scratch//ServerSiteList.xml\n"},
      {kSiteCache, "Error : Failed to delete sitecache file, /opt/Quorvane/orv/scratch/etc/sitecache.bin\n"}};
  for (const auto& [stuck, message] : cases) {
    SetUp();
    ASSERT_EQ(::unlink(stuck.c_str()), 0);
    putDirectory(stuck);
    EXPECT_EQ(run(false), message);
    expectServerRemoved();
    for (const auto& [path, other] : cases)
      EXPECT_EQ(exists(path), path == stuck) << path;
  }
}

TEST_F(UnmanagedMode, ReportsWhatCannotBeExaminedAndGoesOn) {
  putLoop(kInstalled + "/reqseckey.bin");
  putLoop(kServerSiteList);
  EXPECT_EQ(run(false),
            "Error : Accessing key file, /opt/Quorvane/orv//reqseckey.bin\n"
            "Error : Accessing sitelist file, /opt/Quorvane/orv/scratch//ServerSiteList.xml\n");
  EXPECT_FALSE(exists(kInstalled + "/srpubkey.bin"));
  EXPECT_FALSE(exists(kSiteCache));

  SetUp();
  putLoop(kInstalled + "/srpubkey.bin");
  putLoop(kSiteCache);
  EXPECT_EQ(run(false),
            "Error : Accessing key file, /opt/Quorvane/orv//srpubkey.bin\n"
            "Error : Accessing sitecache file, /opt/Quorvane/orv/scratch/etc/sitecache.bin\n");
  EXPECT_FALSE(exists(kInstalled + "/reqseckey.bin"));
  EXPECT_FALSE(exists(kServerSiteList));
}

TEST_F(UnmanagedMode, SaysNothingWhenTheSiteListCannotBeWrittenAndDeletesTheRest) {
  const std::string etc = kInstalled + "/scratch/etc";
  const std::string siteList =
      "<ns:SiteLists><SiteList><SpipeSite/></SiteList><!--" + std::string(10000, 'x') + "--></ns:SiteLists>";
  kelt::tests::mountSmall(etc, 16384);
  putFile(kInstalledSiteList, siteList);
  putFile(kSiteCache, "cached sites");
  EXPECT_EQ(run(true), "");
  EXPECT_EQ(contentOf(kInstalledSiteList), siteList);
  EXPECT_EQ(namesIn(etc), Names{"SiteList.xml"});
  EXPECT_EQ(namesIn(kInstalled + "/scratch"), Names{"etc"});
  EXPECT_FALSE(exists(kInstalled + "/reqseckey.bin"));
  EXPECT_FALSE(exists(kInstalled + "/srpubkey.bin"));
}

TEST_F(UnmanagedMode, RemovesAHundredThousandServersAmongAsManyOthers) {
  std::string siteList = "<ns:SiteLists><SiteList>\n";
  for (int i = 0; i < 100000; ++i)
    siteList += "  <HttpSite/>\n  <SpipeSite ServerIP=\"192.0.2.1\"/>\n";
  putFile(kInstalledSiteList, siteList + "</SiteList></ns:SiteLists>\n");
  EXPECT_EQ(run(true), "");
  const std::string left = contentOf(kInstalledSiteList);
  EXPECT_EQ(left.find("SpipeSite"), std::string::npos);
  std::size_t others = 0;
  for (std::size_t at = left.find("<HttpSite/>"); at != std::string::npos; at = left.find("<HttpSite/>", at + 1)) {
    ++others;
  }
  EXPECT_EQ(others, 100000U);
}

TEST_F(UnmanagedMode, IsMarkedUntilAllIsGone) {
  ASSERT_EQ(::unlink(kSiteCache.c_str()), 0);
  putDirectory(kSiteCache);
  EXPECT_NE(run(false), "");
  EXPECT_FALSE(exists(kMark)) << "a failure, too, ends the work";
  putFile(kInstalledSiteList, "<ns:SiteLists>");
  EXPECT_NE(run(false), "");
  EXPECT_FALSE(exists(kMark));
}

TEST_F(UnmanagedMode, DeletesWhatAnEarlierRunHasLeftWithoutServers) {
  putFile(kInstalledSiteList, kWithoutServer);
  putMark();
  EXPECT_EQ(run(true), "");
  EXPECT_EQ(contentOf(kInstalledSiteList), kWithoutServer);
  for (const std::string& path :
       {kMark, kServerSiteList, kSiteCache, kInstalled + "/reqseckey.bin", kInstalled + "/srpubkey.bin"}) {
    EXPECT_FALSE(exists(path)) << path;
  }
}

TEST_F(UnmanagedMode, FailsWhereTheRestOfAnEarlierRunCannotBeDeleted) {
  putFile(kInstalledSiteList, kWithoutServer);
  putMark();
  ASSERT_EQ(::unlink(kServerSiteList.c_str()), 0);
  putDirectory(kServerSiteList);
  EXPECT_EQ(run(false), "Error : Failed to delete sitelist file, /opt/Quorvane/orv/scratch//ServerSiteList.xml\n");
  EXPECT_FALSE(exists(kSiteCache));
  EXPECT_FALSE(exists(kMark));
}

TEST_F(UnmanagedMode, DeletesNothingForAnEarlierRunWhereTheSiteListIsUnusable) {
  putFile(kInstalledSiteList, "<ns:SiteLists>");
  putMark();
  EXPECT_EQ(run(false), "Error : For unmanaged mode, sitelist file failed to load.\n");
  EXPECT_TRUE(bServerDataThere());
  EXPECT_FALSE(exists(kMark));
}

TEST_F(UnmanagedMode, DeletesNothingWithoutServersForAMarkOfAnotherKind) {
  putFile(kInstalledSiteList, kWithoutServer);
  putFile(kMark, "work=key-import\n", 0600);
  EXPECT_EQ(run(true), "");
  EXPECT_TRUE(bServerDataThere());
  EXPECT_TRUE(exists(kMark));
}

TEST_F(UnmanagedMode, IsFinishedInSilence) {
  putFile(kInstalledSiteList, kWithoutServer);
  putMark();
  ASSERT_EQ(::unlink((kInstalled + "/reqseckey.bin").c_str()), 0);
  ASSERT_EQ(::unlink(kSiteCache.c_str()), 0);
  putDirectory(kSiteCache);
  putLoop(kInstalled + "/reqseckey.bin");
  EXPECT_EQ(finish(), "");
  EXPECT_FALSE(exists(kServerSiteList));
  EXPECT_FALSE(exists(kInstalled + "/srpubkey.bin"));
  EXPECT_FALSE(exists(kMark));
  EXPECT_EQ(kelt::tests::logLines(),
            (Names{"I Finishing the switch to unmanaged mode that an earlier run began.",
                   "E Left of an interrupted switch, not deleted: /opt/Quorvane/orv//reqseckey.bin",
                   "E Left of an interrupted switch, not deleted: /opt/Quorvane/orv/scratch/etc/sitecache.bin"}));
}

TEST_F(UnmanagedMode, IsNotFinishedWhereItHasNotBegun) {
  for (const std::string& siteList : {kelt::tests::kSiteListWithServer, std::string("<ns:SiteLists>")}) {
    putFile(kInstalledSiteList, siteList);
    putMark();
    EXPECT_EQ(finish(), "");
    EXPECT_TRUE(bServerDataThere());
    EXPECT_EQ(contentOf(kInstalledSiteList), siteList);
    EXPECT_FALSE(exists(kMark));
  }
}

}  // namespace
