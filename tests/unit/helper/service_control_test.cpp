// Which commands a start and a stop run, and in which order.

#include <sys/stat.h>
#include <unistd.h>

#include "service_fixture.h"
#include "support/log.h"
#include "support/process_limit.h"

using kelt::helper::unixCommandLineHelper;
using kelt::tests::calls;
using kelt::tests::kAgentDirectory;
using kelt::tests::namesAsListed;
using kelt::tests::outputOf;
using kelt::tests::putCommand;
using kelt::tests::putDirectory;
using kelt::tests::putFile;
using kelt::tests::putProduct;
using Lines = std::vector<std::string>;

namespace {

class ServiceControl : public kelt::tests::ServiceFixture {};

TEST_F(ServiceControl, FailsSilentlyWithoutAnAgent) {
  expectStart(false);
  expectStop(false);
  putPlugIn("PRODUCT");
  expectStart(false);
  expectStop(false);
  EXPECT_EQ(calls(), Lines{});
}

TEST_F(ServiceControl, RunsOneCommandForAnAgentAlone) {
  putAgent();
  expectStart(true);
  EXPECT_EQ(calls(), Lines{"agent start"});
  expectStop(true);
  EXPECT_EQ(calls(), (Lines{"agent start", "agent stop"}));
}

TEST_F(ServiceControl, StartsTheAgentFirstAndStopsItLast) {
  putAgent();
  for (const char* name : {"B_PRODUCT", "A_PRODUCT", "C_PRODUCT"})
    putPlugIn(name);
  Lines starting{"agent start"};
  Lines stopping;
  for (const std::string& name : namesAsListed("/etc/orv.d")) {
    if (name == "ZENTORAGENT3000") continue;
    starting.push_back("plugin load " + name);
    stopping.push_back("plugin unload " + name);
  }
  stopping.emplace_back("agent stop");

  expectStart(true);
  EXPECT_EQ(calls(), starting);
  ASSERT_EQ(::unlink("/tmp/calls"), 0);
  expectStop(true);
  EXPECT_EQ(calls(), stopping);
}

TEST_F(ServiceControl, WaitsForEachCommandBeforeTheNext) {
  const std::string slow = putCommand("slow", "sleep 0.1; echo slow finished >> /tmp/calls");
  putProduct("ZENTORAGENT", {{"StartCommand", slow}, {"StopCommand", m_agent + " stop"}});
  putProduct("PRODUCT", {{"LoadOrvPluginCommand", m_plugIn}, {"UnloadOrvPluginCommand", slow}});
  expectStart(true);
  expectStop(true);
  EXPECT_EQ(calls(), (Lines{"slow", "slow finished", "plugin", "slow", "slow finished", "agent stop"}));
}

TEST_F(ServiceControl, PassesProductsThatHaveNothingToRun) {
  putAgent();
  putProduct("WITHOUT_ELEMENTS", {{"Version", "1"}});
  putDirectory("/etc/orv.d/WITHOUT_FILE");
  putDirectory("/etc/orv.d/DIRECTORY_FOR_FILE/config.xml");
  putFile("/etc/orv.d/MALFORMED/config.xml", "<Configuration><LoadOrvPluginCommand>" + m_plugIn);
  putFile("/etc/orv.d/OTHER_ROOT/config.xml",
          "<Config><LoadOrvPluginCommand>" + m_plugIn + "</LoadOrvPluginCommand></Config>");
  ASSERT_EQ(::symlink("/opt/nowhere", "/etc/orv.d/DANGLING"), 0);
  ASSERT_EQ(::mkfifo("/etc/orv.d/WITHOUT_FILE/config.xml", 0644), 0);
  putPlugIn("PRODUCT");
  expectStart(true);
  expectStop(true);
  EXPECT_EQ(calls(), (Lines{"agent start", "plugin load PRODUCT", "plugin unload PRODUCT", "agent stop"}));
}

TEST_F(ServiceControl, PassesRegularFilesThatAreNamedLikeTheAgentsDirectory) {
  // Some stand before the directory and some after, whichever way the system lists them.
  for (int n = 0; n < 10; ++n)
    putFile("/etc/orv.d/ZENTORAGENT" + std::to_string(n), "<Configuration/>");
  putAgent();
  for (int n = 10; n < 20; ++n)
    putFile("/etc/orv.d/ZENTORAGENT" + std::to_string(n), "<Configuration/>");
  ASSERT_NE(namesAsListed("/etc/orv.d").front(), "ZENTORAGENT3000");
  expectStart(true);
  expectStop(true);
  EXPECT_EQ(calls(), (Lines{"agent start", "agent stop"}));
}

TEST_F(ServiceControl, StopsTheAgentAsSoonAsTheSystemHasAProcessForThat) {
  putAgent();
  putDirectory("/opt/Quorvane/orv/scratch/logs");
  for (const char* directory : {"/tmp", "/opt/Quorvane/orv/scratch/logs"})
    ASSERT_EQ(::chmod(directory, 0777), 0);
  const int status = kelt::tests::statusOfProcess([] {
    unixCommandLineHelper helper;
    if (!kelt::tests::bAlone()) return false;
    kelt::tests::startTimer(kelt::tests::allowOthersAfterAWhile);
    return helper.StopORVService();
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(calls(), Lines{"agent stop"});
  EXPECT_EQ(kelt::tests::errorsLogged(), Lines{"The system has no process for a command of the agent; trying again."});
}

TEST_F(ServiceControl, RunsTheStopCommandThatStoodThereBeforeThePlugInsWereUnloaded) {
  putAgent();
  const std::string config = std::string(kAgentDirectory) + "/config.xml";
  putProduct("PRODUCT",
             {{"UnloadOrvPluginCommand", putCommand("edit", "sed -i 's/agent stop/agent other/' " + config)}});
  expectStop(true);
  EXPECT_EQ(calls(), (Lines{"edit", "agent stop"}));
  EXPECT_NE(kelt::tests::contentOf(config).find("agent other"), std::string::npos);
}

TEST_F(ServiceControl, TakesTheFirstElementOfAName) {
  putProduct("ZENTORAGENT", {{"StartCommand", m_agent + " first"}, {"StartCommand", m_agent + " second"}});
  putProduct("PRODUCT", {{"LoadOrvPluginCommand", m_plugIn + " first"}, {"LoadOrvPluginCommand", m_plugIn}});
  expectStart(true);
  EXPECT_EQ(calls(), (Lines{"agent first", "plugin first"}));
}

TEST_F(ServiceControl, GoesOnWithoutACommandForTheAgent) {
  putProduct("ZENTORAGENT", {{"Version", "1"}});
  putPlugIn("PRODUCT");
  expectStart(true);
  expectStop(true);
  EXPECT_EQ(calls(), (Lines{"plugin load PRODUCT", "plugin unload PRODUCT"}));
}

TEST_F(ServiceControl, IsContentHoweverTheCommandsEnd) {
  const std::string failing = putCommand("failing", "exit 3");
  putProduct("ZENTORAGENT", {{"StartCommand", failing + " start"}, {"StopCommand", "/tmp/missing"}});
  putProduct("PRODUCT", {{"LoadOrvPluginCommand", failing + " load"}, {"UnloadOrvPluginCommand", failing}});
  expectStart(true);
  expectStop(true);
  EXPECT_EQ(calls(), (Lines{"failing start", "failing load", "failing"}));
}

TEST_F(ServiceControl, TakesNoDirectoryWithTheMarkerForAPlugIn) {
  putAgent();
  putPlugIn("ZENTORAGENT-old");
  expectStart(true);
  // Whichever of the two the system lists first counts as the agent's; no plug-in is loaded from the other.
  const bool bAgentFirst = namesAsListed("/etc/orv.d").front() == "ZENTORAGENT3000";
  EXPECT_EQ(calls(), bAgentFirst ? Lines{"agent start"} : Lines{});
}

TEST_F(ServiceControl, FailsSilentlyWhenTheAgentsFileDoesNotLoad) {
  putPlugIn("PRODUCT");
  const std::string path = std::string(kAgentDirectory) + "/config.xml";
  for (const std::string content : {"", "<Configuration>", "<Other/>", "<Configuration>&</Configuration>"}) {
    putFile(path, content);
    expectStart(false);
    expectStop(false);
  }
  ASSERT_EQ(::unlink(path.c_str()), 0);
  expectStart(false);
  expectStop(false);
  EXPECT_EQ(calls(), Lines{});
}

TEST_F(ServiceControl, HandsNoDescriptorToACommand) {
  putAgent();
  putProduct("PRODUCT", {{"LoadOrvPluginCommand", "ls -l /proc/self/fd"}});
  const auto printed = outputOf([] { EXPECT_TRUE(unixCommandLineHelper().StartORVService()); });
  EXPECT_NE(printed.out.find(" 1 -> "), std::string::npos) << printed.out;
  EXPECT_EQ(printed.out.find("/etc/orv.d"), std::string::npos) << printed.out;
}

}  // namespace
