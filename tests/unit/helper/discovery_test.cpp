#include <sys/stat.h>
#include <unistd.h>

#include "support/agent_on_device.h"
#include "support/private_device.h"

#include "helper/unix_command_line_helper.h"

using kelt::helper::unixCommandLineHelper;
using kelt::tests::namesAsListed;
using kelt::tests::putDirectory;
using kelt::tests::putFile;

namespace {

class Discovery : public kelt::tests::PrivateDevice {
 protected:
  /// The path found, or "as before" when none was.
  static std::wstring found() {
    const unixCommandLineHelper helper;
    AString path(L"as before");
    helper.GetORVPath(path);
    return path.str();
  }
};

TEST_F(Discovery, FindsTheConfigurationFileOfTheAgent) {
  putDirectory("/etc/orv.d/OTHER_PRODUCT");
  putDirectory("/etc/orv.d/ZENTORAGENT3000");
  EXPECT_EQ(found(), L"/etc/orv.d/ZENTORAGENT3000/config.xml");
}

TEST_F(Discovery, TakesTheMarkerAnywhereInTheName) {
  putDirectory("/etc/orv.d/ZENTORAGENT-old");
  EXPECT_EQ(found(), L"/etc/orv.d/ZENTORAGENT-old/config.xml");
  ASSERT_EQ(::rename("/etc/orv.d/ZENTORAGENT-old", "/etc/orv.d/x.ZENTORAGENT"), 0);
  EXPECT_EQ(found(), L"/etc/orv.d/x.ZENTORAGENT/config.xml");
}

TEST_F(Discovery, TakesTheFirstOfSeveralAsTheDirectoryListsThem) {
  for (const char* name : {"ZENTORAGENT1", "ZENTORAGENT2", "AZENTORAGENT", "zZENTORAGENT"}) {
    putDirectory(std::string("/etc/orv.d/") + name);
  }
  const std::string first = namesAsListed("/etc/orv.d").front();
  EXPECT_EQ(found(), quorvane_com::orv::tellcomn_ansi_to_wide("/etc/orv.d/" + first + "/config.xml"));
}

TEST_F(Discovery, TellsTheCaseOfTheMarker) {
  putDirectory("/etc/orv.d/ZentorAgent");
  EXPECT_EQ(found(), L"as before");
}

TEST_F(Discovery, IgnoresAFileNamedLikeTheAgentsDirectory) {
  putFile("/etc/orv.d/ZENTORAGENT", "");
  EXPECT_EQ(found(), L"as before");
  putDirectory("/etc/orv.d/ZENTORAGENT3000");
  EXPECT_EQ(found(), L"/etc/orv.d/ZENTORAGENT3000/config.xml");
}

TEST_F(Discovery, FollowsALinkToADirectoryAndPassesADanglingOne) {
  ASSERT_EQ(::symlink("/opt/nowhere", "/etc/orv.d/ZENTORAGENT"), 0);
  EXPECT_EQ(found(), L"as before");
  ASSERT_EQ(::unlink("/etc/orv.d/ZENTORAGENT"), 0);
  ASSERT_EQ(::symlink("/opt/Quorvane", "/etc/orv.d/ZENTORAGENT"), 0);
  EXPECT_EQ(found(), L"/etc/orv.d/ZENTORAGENT/config.xml");
}

TEST_F(Discovery, LeavesThePathAsItWasWithoutAnAgent) {
  EXPECT_EQ(found(), L"as before");
  putDirectory("/etc/orv.d/OTHER_PRODUCT");
  EXPECT_EQ(found(), L"as before");
}

TEST_F(Discovery, FindsNothingWithoutAConfigurationDirectory) {
  ASSERT_EQ(::rmdir("/etc/orv.d"), 0);
  EXPECT_EQ(found(), L"as before");
  putFile("/etc/orv.d", "a file");
  EXPECT_EQ(found(), L"as before");
  ASSERT_EQ(::unlink("/etc/orv.d"), 0);
}

TEST_F(Discovery, FindsNothingInADirectoryThatOthersMayWriteTo) {
  putDirectory("/etc/orv.d/ZENTORAGENT");
  for (const mode_t mode : {0777U, 0757U, 01777U, 0702U}) {
    ASSERT_EQ(::chmod("/etc/orv.d", mode), 0);
    EXPECT_EQ(found(), L"as before") << std::oct << mode;
  }
}

TEST_F(Discovery, AcceptsADirectoryThatTheGroupMayWriteTo) {
  putDirectory("/etc/orv.d/ZENTORAGENT");
  for (const mode_t mode : {0775U, 0770U, 0555U, 02775U}) {
    ASSERT_EQ(::chmod("/etc/orv.d", mode), 0);
    EXPECT_EQ(found(), L"/etc/orv.d/ZENTORAGENT/config.xml") << std::oct << mode;
  }
}

TEST_F(Discovery, FindsNothingInADirectoryThatIsNotRoots) {
  putDirectory("/etc/orv.d/ZENTORAGENT");
  kelt::tests::putForeignDirectory("/etc/orv.d");
  EXPECT_EQ(found(), L"as before");
}

TEST_F(Discovery, KeepsANameThatIsNoUtf8) {
  putDirectory("/etc/orv.d/ZENTORAGENT\xE9");
  EXPECT_EQ(found(), L"/etc/orv.d/ZENTORAGENT\xDCE9/config.xml");
}

TEST_F(Discovery, PrintsNothing) {
  const auto output = kelt::tests::outputOf([] {
    found();
    ::rmdir("/etc/orv.d");
    found();
  });
  EXPECT_EQ(output.out + output.err, "");
}

}  // namespace
