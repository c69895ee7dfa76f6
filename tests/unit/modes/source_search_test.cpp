#include <unistd.h>

#include "installation.h"

#include "helper/unix_command_line_helper.h"

using kelt::helper::unixCommandLineHelper;
using kelt::tests::contentOf;
using kelt::tests::exists;
using kelt::tests::kInstalledSiteList;
using kelt::tests::putDirectory;
using kelt::tests::putFile;
using kelt::tests::putLoop;
using kelt::tests::putSource;

namespace {

const std::string kNothingFound =
    "Error : For managed mode, sitelist file and all key files could not be found for processing.\n\n";

std::string incomplete(const std::string& directory) {
  return "Error : For managed mode, although sitelist file found in " + directory +
         ", all key files not present or accessible.\n";
}

/// A site list that tells where it came from.
std::string siteListOf(const std::string& name) {
  return "<ns:SiteLists><SiteList><SpipeSite ServerIP=\"" + name + "\"/></SiteList></ns:SiteLists>";
}

class SourceSearch : public kelt::tests::Installation {
 protected:
  /// Switches from `sourceDir` typed in `currentDir`; what was printed.
  std::string search(int result, const std::wstring& sourceDir, const std::wstring& currentDir) {
    const auto printed =
        kelt::tests::outputOf([&] { EXPECT_EQ(m_helper.PrepareORVForManagedMode(sourceDir, currentDir), result); });
    EXPECT_EQ(printed.err, "");
    return printed.out;
  }

  unixCommandLineHelper m_helper;
};

TEST_F(SourceSearch, TakesTheDirectoryAsTypedFirst) {
  putSource("/tmp/keys", siteListOf("typed"));
  putSource("/tmp/here/tmp/keys", siteListOf("joined"));
  putSource("/tmp/here", siteListOf("current"));
  EXPECT_EQ(search(1, L"/tmp/keys", L"/tmp/here"), "");
  EXPECT_EQ(contentOf(kInstalledSiteList), siteListOf("typed"));
  EXPECT_EQ(m_helper.GetSourceDir(), L"/tmp/keys");
}

TEST_F(SourceSearch, TriesARelativeDirectoryFromTheWorkingDirectoryOfTheProcess) {
  putSource("/tmp/process/keys", siteListOf("process"));
  putSource("/tmp/here/keys", siteListOf("joined"));
  ASSERT_EQ(::chdir("/tmp/process"), 0);
  EXPECT_EQ(search(1, L"keys", L"/tmp/here"), "");
  EXPECT_EQ(contentOf(kInstalledSiteList), siteListOf("process"));
}

TEST_F(SourceSearch, TriesItBelowTheGivenDirectoryNext) {
  putSource("/tmp/here/keys", siteListOf("joined"));
  putSource("/tmp/here", siteListOf("current"));
  EXPECT_EQ(search(1, L"keys", L"/tmp/here"), "");
  EXPECT_EQ(contentOf(kInstalledSiteList), siteListOf("joined"));
  EXPECT_EQ(m_helper.GetSourceDir(), L"/tmp/here/keys");
}

TEST_F(SourceSearch, TriesTheGivenDirectoryItselfLast) {
  putSource("/tmp/here", siteListOf("current"));
  EXPECT_EQ(search(1, L"keys", L"/tmp/here"), "");
  EXPECT_EQ(contentOf(kInstalledSiteList), siteListOf("current"));
  EXPECT_EQ(m_helper.GetSourceDir(), L"/tmp/here");
}

TEST_F(SourceSearch, FindsNothing) {
  const auto before = kelt::tests::installedTree();
  EXPECT_EQ(search(0, L"keys", L"/tmp/here"), kNothingFound);
  EXPECT_EQ(kelt::tests::installedTree(), before);
  EXPECT_EQ(m_helper.GetSourceDir(), L"");
}

TEST_F(SourceSearch, GoesOnAfterAnIncompleteDirectory) {
  putFile("/tmp/keys/SiteList.xml", siteListOf("incomplete"));
  for (const std::string& name : kelt::tests::kKeyNames) {
    if (name != "agentfipsmode") putFile("/tmp/keys/" + name, name);
  }
  putSource("/tmp/here", siteListOf("current"));
  EXPECT_EQ(search(1, L"/tmp/keys", L"/tmp/here"),
            "Error : Missing key file, /tmp/keys/agentfipsmode\n" + incomplete("/tmp/keys"));
  EXPECT_EQ(contentOf(kInstalledSiteList), siteListOf("current"));
  EXPECT_TRUE(exists("/tmp/keys/SiteList.xml"));
}

TEST_F(SourceSearch, ReportsEveryIncompleteDirectoryAndRemembersTheLast) {
  for (const std::string directory : {"/tmp/here/keys", "/tmp/here"}) {
    putSource(directory);
    ASSERT_EQ(::unlink((directory + "/agentfipsmode").c_str()), 0);
  }
  const auto before = kelt::tests::installedTree();
  EXPECT_EQ(search(0, L"keys", L"/tmp/here"),
            "Error : Missing key file, /tmp/here/keys/agentfipsmode\n" + incomplete("/tmp/here/keys") +
                "Error : Missing key file, /tmp/here/agentfipsmode\n" + incomplete("/tmp/here") + kNothingFound);
  EXPECT_EQ(kelt::tests::installedTree(), before);
  EXPECT_EQ(m_helper.GetSourceDir(), L"/tmp/here");
}

TEST_F(SourceSearch, ReportsASiteListThatCannotBeExaminedAndGoesOn) {
  putDirectory("/tmp/keys");
  putLoop("/tmp/keys/SiteList.xml");
  putSource("/tmp/here", siteListOf("current"));
  EXPECT_EQ(search(1, L"/tmp/keys", L"/tmp/here"), "Error : Accessing sitelist file, /tmp/keys/SiteList.xml\n");
  EXPECT_EQ(contentOf(kInstalledSiteList), siteListOf("current"));
}

TEST_F(SourceSearch, ReportsSiteListsThatCannotBeExaminedAndNothingElse) {
  putDirectory("/tmp/here/keys");
  putLoop("/tmp/here/keys/SiteList.xml");
  putLoop("/tmp/here/SiteList.xml");
  EXPECT_EQ(search(0, L"keys", L"/tmp/here"),
            "Error : Accessing sitelist file, /tmp/here/keys/SiteList.xml\n"
            "Error : Accessing sitelist file, /tmp/here/SiteList.xml\n" +
                kNothingFound);
}

TEST_F(SourceSearch, TriesNoFurtherDirectoryAfterAFailedSwitch) {
  putSource("/tmp/keys", "<ns:SiteLists><SiteList/></ns:SiteLists>");
  putSource("/tmp/here", siteListOf("current"));
  EXPECT_EQ(search(0, L"/tmp/keys", L"/tmp/here"), "Error : Sitelist file invalid. Server ip not found.\n\n");
  EXPECT_FALSE(exists(kInstalledSiteList));
  EXPECT_EQ(m_helper.GetSourceDir(), L"/tmp/keys");
}

TEST_F(SourceSearch, KeepsNamesBeyondAscii) {
  putDirectory("/tmp/cl\xC3\xA9s\xFF");
  putLoop("/tmp/cl\xC3\xA9s\xFF/SiteList.xml");
  EXPECT_EQ(search(0, L"/tmp/cl\u00E9s\xDCFF", L"/tmp/here"),
            "Error : Accessing sitelist file, /tmp/cl\xC3\xA9s\xFF/SiteList.xml\n" + kNothingFound);
}

}  // namespace
