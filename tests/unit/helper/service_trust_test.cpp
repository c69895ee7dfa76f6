// A start and a stop run nothing that somebody other than root may have written.

#include <algorithm>
#include <sys/stat.h>
#include <unistd.h>

#include "service_fixture.h"
#include "support/child.h"
#include "support/log.h"

using kelt::tests::calls;
using kelt::tests::kAgentDirectory;
using kelt::tests::putDirectory;
using kelt::tests::putFile;
using kelt::tests::putProduct;
using Lines = std::vector<std::string>;

namespace {

class ServiceTrust : public kelt::tests::ServiceFixture {};

TEST_F(ServiceTrust, RunsNothingFromAConfigurationDirectoryThatOthersMayWriteTo) {
  putAgent();
  putPlugIn("PRODUCT");
  ASSERT_EQ(::chmod("/etc/orv.d", 0777), 0);
  expectStart(false);
  expectStop(false);
  EXPECT_EQ(calls(), Lines{});
}

TEST_F(ServiceTrust, RunsNothingWithoutAConfigurationDirectory) {
  ASSERT_EQ(::rmdir("/etc/orv.d"), 0);
  expectStart(false);
  expectStop(false);
}

TEST_F(ServiceTrust, RunsNothingThatOthersMayHaveWrittenForTheAgent) {
  putPlugIn("PRODUCT");
  putAgent();
  const std::string file = std::string(kAgentDirectory) + "/config.xml";
  for (const std::string& path : {file, std::string(kAgentDirectory)}) {
    const mode_t mode = kelt::tests::modeOf(path);
    ASSERT_EQ(::chmod(path.c_str(), mode | 0002U), 0);
    expectStart(false);
    expectStop(false);
    ASSERT_EQ(::chmod(path.c_str(), mode | 0020U), 0);
  }
  EXPECT_EQ(calls(), Lines{});
  expectStart(true);
  EXPECT_EQ(calls(), (Lines{"agent start", "plugin load PRODUCT"}));
}

TEST_F(ServiceTrust, RunsNothingThatOthersMayHaveWrittenForAPlugIn) {
  putAgent();
  putPlugIn("FILE");
  putPlugIn("DIRECTORY");
  putPlugIn("LINKED");
  ASSERT_EQ(::chmod("/etc/orv.d/FILE/config.xml", 0646), 0);
  ASSERT_EQ(::chmod("/etc/orv.d/DIRECTORY", 0777), 0);
  putFile("/tmp/linked.xml", kelt::tests::contentOf("/etc/orv.d/LINKED/config.xml"), 0666);
  ASSERT_EQ(::unlink("/etc/orv.d/LINKED/config.xml"), 0);
  ASSERT_EQ(::symlink("/tmp/linked.xml", "/etc/orv.d/LINKED/config.xml"), 0);
  expectStart(true);
  expectStop(true);
  EXPECT_EQ(calls(), (Lines{"agent start", "agent stop"}));

  ASSERT_EQ(::chmod("/tmp/linked.xml", 0644), 0);
  expectStart(true);
  EXPECT_EQ(calls(), (Lines{"agent start", "agent stop", "agent start"})) << "others may write to /tmp";
  ASSERT_EQ(::unlink("/tmp/calls"), 0);
  ASSERT_EQ(::unlink("/etc/orv.d/LINKED/config.xml"), 0);
  putFile("/opt/Quorvane/linked.xml", kelt::tests::contentOf("/tmp/linked.xml"));
  ASSERT_EQ(::symlink("/opt/Quorvane/linked.xml", "/etc/orv.d/LINKED/config.xml"), 0);
  expectStart(true);
  EXPECT_EQ(calls(), (Lines{"agent start", "plugin load LINKED"}));
}

TEST_F(ServiceTrust, SaysOnceInTheLogWhyAFileIsNotUsed) {
  kelt::tests::expectInOwnProcess([&] {
    putDirectory("/opt/Quorvane/orv/scratch");
    putAgent();
    putPlugIn("SAID_WRITABLE");
    putFile("/etc/orv.d/SAID_MALFORMED/config.xml", "<Other/>");
    putDirectory("/etc/orv.d/SAID_MISSING");
    ASSERT_EQ(::chmod("/etc/orv.d/SAID_WRITABLE/config.xml", 0646), 0);
    for (int again = 0; again < 2; ++again) {
      expectStart(true);
      expectStop(true);
    }
    Lines errors = kelt::tests::errorsLogged();
    std::sort(errors.begin(), errors.end());
    EXPECT_EQ(errors,
              (Lines{"/etc/orv.d/SAID_MALFORMED/config.xml: XML document with another root element than Configuration",
                     "/etc/orv.d/SAID_WRITABLE/config.xml: can be written by others"}));
  });
}

TEST_F(ServiceTrust, SaysInTheLogWhyTheAgentsFileIsNotUsed) {
  kelt::tests::expectInOwnProcess([&] {
    putDirectory("/opt/Quorvane/orv/scratch");
    putProduct("ZENTORAGENT-said", {{"StartCommand", m_agent + " start"}, {"StopCommand", m_agent + " stop"}});
    ASSERT_EQ(::chmod("/etc/orv.d/ZENTORAGENT-said", 0777), 0);
    expectStart(false);
    expectStop(false);
    EXPECT_EQ(kelt::tests::errorsLogged(), Lines{"/etc/orv.d/ZENTORAGENT-said/config.xml: /etc/orv.d/ZENTORAGENT-said: "
                                                 "can be written by others"});
  });
}

TEST_F(ServiceTrust, RunsNothingFromDirectoriesThatAreNotRoots) {
  putAgent();
  putPlugIn("PRODUCT");
  kelt::tests::putForeignDirectory("/etc/orv.d/PRODUCT");
  expectStart(true);
  expectStop(true);
  EXPECT_EQ(calls(), (Lines{"agent start", "agent stop"}));
  kelt::tests::putForeignDirectory(kAgentDirectory);
  expectStart(false);
  expectStop(false);
  EXPECT_EQ(calls(), (Lines{"agent start", "agent stop"}));
}

TEST_F(ServiceTrust, RunsNothingFromFilesThatAreNotRoots) {
  putAgent();
  putPlugIn("PRODUCT");
  // In a namespace of one user no file can be given away, but what the machine's root owns is foreign there.
  const char* file = "/etc/orv.d/PRODUCT/config.xml";
  if (::chown(file, 65534, 0) != 0) {
    ASSERT_EQ(::unlink(file), 0);
    ASSERT_EQ(::symlink("/etc/passwd", file), 0);
  }
  expectStart(true);
  expectStop(true);
  EXPECT_EQ(calls(), (Lines{"agent start", "agent stop"}));
}

}  // namespace
