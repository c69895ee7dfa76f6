#include <algorithm>
#include <array>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "limited_memory.h"
#include "support/agent_on_device.h"
#include "support/child.h"
#include "support/log.h"
#include "support/private_device.h"

#include "helper/unix_command_line_helper.h"

using kelt::helper::unixCommandLineHelper;
using kelt::tests::calls;
using kelt::tests::namesAsListed;
using kelt::tests::outputOf;
using kelt::tests::putCommand;
using kelt::tests::putDirectory;
using kelt::tests::putFile;
using kelt::tests::putProduct;
using kelt::tests::WhenRead;
using Lines = std::vector<std::string>;

namespace {

constexpr const char* kAgentDirectory = "/etc/orv.d/ZENTORAGENT3000";

class ServiceControl : public kelt::tests::PrivateDevice {
 protected:
  void SetUp() override {
    PrivateDevice::SetUp();
    m_agent = putCommand("agent");
    m_plugIn = putCommand("plugin");
  }

  void putAgent() const {
    putProduct("ZENTORAGENT3000", {{"StartCommand", m_agent + " start"}, {"StopCommand", m_agent + " stop"}});
  }

  /// A product whose commands tell its name.
  void putPlugIn(const std::string& name) const {
    putProduct(name, {{"LoadOrvPluginCommand", m_plugIn + " load " + name},
                      {"UnloadOrvPluginCommand", m_plugIn + " unload " + name}});
  }

  /// Starts or stops, expecting a result and an output.
  static void expectStart(bool result, const std::string& output = "") {
    const auto printed = outputOf([&] { EXPECT_EQ(unixCommandLineHelper().StartORVService(), result); });
    EXPECT_EQ(printed.out, output);
    EXPECT_EQ(printed.err, "");
  }
  static void expectStop(bool result, const std::string& output = "") {
    const auto printed = outputOf([&] { EXPECT_EQ(unixCommandLineHelper().StopORVService(), result); });
    EXPECT_EQ(printed.out, output);
    EXPECT_EQ(printed.err, "");
  }

  std::string m_agent;
  std::string m_plugIn;
};

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

TEST_F(ServiceControl, RunsNothingFromAConfigurationDirectoryThatOthersMayWriteTo) {
  putAgent();
  putPlugIn("PRODUCT");
  ASSERT_EQ(::chmod("/etc/orv.d", 0777), 0);
  expectStart(false);
  expectStop(false);
  EXPECT_EQ(calls(), Lines{});
}

TEST_F(ServiceControl, RunsNothingWithoutAConfigurationDirectory) {
  ASSERT_EQ(::rmdir("/etc/orv.d"), 0);
  expectStart(false);
  expectStop(false);
}

TEST_F(ServiceControl, RunsNothingThatOthersMayHaveWrittenForTheAgent) {
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

TEST_F(ServiceControl, RunsNothingThatOthersMayHaveWrittenForAPlugIn) {
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

TEST_F(ServiceControl, SaysOnceInTheLogWhyAFileIsNotUsed) {
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

TEST_F(ServiceControl, SaysInTheLogWhyTheAgentsFileIsNotUsed) {
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

TEST_F(ServiceControl, RunsNothingFromDirectoriesThatAreNotRoots) {
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

TEST_F(ServiceControl, RunsNothingFromFilesThatAreNotRoots) {
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

// What follows is a configuration directory that changes between being searched for the agent and for plug-ins.

TEST_F(ServiceControl, LoadsNoPlugInsWhenStartingOpensTheDirectoryToOthers) {
  putProduct("ZENTORAGENT", {{"StartCommand", putCommand("open", "chmod 0777 /etc/orv.d")}});
  putPlugIn("PRODUCT");
  expectStart(true, "Security Issue, Config Dir is writable by non root.\n");
  EXPECT_EQ(calls(), Lines{"open"});
}

TEST_F(ServiceControl, LoadsNoPlugInsWhenStartingRemovesTheDirectory) {
  putProduct("ZENTORAGENT", {{"StartCommand", putCommand("remove", "mv /etc/orv.d /tmp/moved")}});
  putPlugIn("PRODUCT");
  expectStart(true, "Failed to Access Config Dir.\n");
  EXPECT_EQ(calls(), Lines{"remove"});
}

/// No descriptor can be opened while it lives; what is open stays usable.
class NoDescriptors {
 public:
  NoDescriptors() {
    ::getrlimit(RLIMIT_NOFILE, &m_before);
    s_none = m_before;
    s_none.rlim_cur = 0;
  }
  NoDescriptors(const NoDescriptors&) = delete;
  NoDescriptors& operator=(const NoDescriptors&) = delete;
  ~NoDescriptors() { ::setrlimit(RLIMIT_NOFILE, &m_before); }
  static void begin() { ::setrlimit(RLIMIT_NOFILE, &s_none); }

 private:
  rlimit m_before{};
  static inline rlimit s_none{};
};

TEST_F(ServiceControl, LoadsNoPlugInsWhenTheDirectoryCannotBeOpenedAnyMore) {
  putProduct("ZENTORAGENT", {{"StartCommand", putCommand("starve", "kill -USR1 $PPID")}});
  putPlugIn("PRODUCT");
  const auto before = std::signal(SIGUSR1, [](int) { NoDescriptors::begin(); });
  const auto printed = outputOf([] {
    const NoDescriptors limit;
    EXPECT_TRUE(unixCommandLineHelper().StartORVService());
  });
  static_cast<void>(std::signal(SIGUSR1, before));
  EXPECT_EQ(printed.out, "Opendir failed for config directory.\n");
  EXPECT_EQ(calls(), Lines{"starve"});
}

// What follows is a start for which everything was kept in advance.

/// Every descriptor that this process may have is taken while it lives, from take() on; commands that it runs have
/// theirs.
class DescriptorsTaken {
 public:
  DescriptorsTaken() { ::getrlimit(RLIMIT_NOFILE, &m_before); }
  DescriptorsTaken(const DescriptorsTaken&) = delete;
  DescriptorsTaken& operator=(const DescriptorsTaken&) = delete;
  ~DescriptorsTaken() {
    ::setrlimit(RLIMIT_NOFILE, &m_before);
    for (; s_count > 0; --s_count)
      ::close(s_taken.at(s_count - 1));
  }
  /// May be called by a signal handler.
  static void take() {
    rlimit few{};
    ::getrlimit(RLIMIT_NOFILE, &few);
    few.rlim_cur = s_taken.size();
    ::setrlimit(RLIMIT_NOFILE, &few);
    for (int fd = 0; (fd = ::open("/dev/null", O_RDONLY | O_CLOEXEC)) >= 0;)
      s_taken.at(s_count++) = fd;
  }

 private:
  rlimit m_before{};
  static inline std::array<int, 200> s_taken{};
  static inline std::size_t s_count = 0;
};

class ReservedStart : public ServiceControl {
 protected:
  void SetUp() override {
    ServiceControl::SetUp();
    putDirectory("/opt/Quorvane/orv/scratch");
    putAgent();
    m_started.emplace_back("agent start");
    for (const char* name : {"B_PRODUCT", "A_PRODUCT", "C_PRODUCT"})
      putPlugIn(name);
    for (const std::string& name : namesAsListed("/etc/orv.d")) {
      if (name != "ZENTORAGENT3000") m_started.push_back("plugin load " + name);
    }
    m_helper.reserveStart();
  }
  void TearDown() override { kelt::tests::limitBlocks(SIZE_MAX); }

  void expectReservedStart(bool result, const std::string& output = "") {
    const auto printed = outputOf([&] { EXPECT_EQ(m_helper.StartORVService(), result); });
    EXPECT_EQ(printed.out, output);
    EXPECT_EQ(printed.err, "");
  }

  /// Puts something in the place of a configuration file that can be opened and not be read.
  static void putUnreadable(const std::string& product) {
    const std::string config = "/etc/orv.d/" + product + "/config.xml";
    ASSERT_EQ(::unlink(config.c_str()), 0);
    ASSERT_EQ(::symlink("/proc/self/mem", config.c_str()), 0);
  }

  static bool bLogged(const std::string& part) {
    const Lines errors = kelt::tests::errorsLogged();
    return std::any_of(errors.begin(), errors.end(),
                       [&](const std::string& line) { return line.find(part) != std::string::npos; });
  }

  static constexpr const char* kKept = "started as it was configured before the stop";

  unixCommandLineHelper m_helper;
  Lines m_started;
};

TEST_F(ReservedStart, IsNotUsedWhereEverythingCanBeReadAnew) {
  putProduct("ZENTORAGENT3000", {{"StartCommand", m_agent + " anew"}});
  putProduct("A_PRODUCT", {{"LoadOrvPluginCommand", m_plugIn + " anew"}});
  std::filesystem::remove_all("/etc/orv.d/B_PRODUCT");
  std::filesystem::remove("/etc/orv.d/C_PRODUCT/config.xml");
  expectReservedStart(true);
  EXPECT_EQ(calls(), (Lines{"agent anew", "plugin anew"}));
  EXPECT_FALSE(bLogged(kKept));
}

TEST_F(ReservedStart, IsUsedWithoutDescriptors) {
  const auto printed = outputOf([&] {
    const DescriptorsTaken taken;
    DescriptorsTaken::take();
    EXPECT_TRUE(m_helper.StartORVService());
  });
  EXPECT_EQ(printed.out, "Opendir failed for config directory.\n");
  EXPECT_EQ(calls(), m_started);
}

TEST_F(ReservedStart, IsUsedWithoutMemory) {
  kelt::tests::limitBlocks(0);
  const bool bStarted = m_helper.StartORVService();
  kelt::tests::limitBlocks(SIZE_MAX);
  EXPECT_TRUE(bStarted);
  EXPECT_EQ(calls(), m_started);
}

TEST_F(ReservedStart, IsUsedWhereTheAgentsFileCannotBeRead) {
  putUnreadable("ZENTORAGENT3000");
  expectReservedStart(true);
  EXPECT_EQ(calls(), m_started);
  EXPECT_TRUE(bLogged(kKept));
}

TEST_F(ReservedStart, IsUsedForAPlugInWhoseFileCannotBeReadInItsTurn) {
  putUnreadable("A_PRODUCT");
  expectReservedStart(true);
  EXPECT_EQ(calls(), m_started);
  EXPECT_TRUE(bLogged("/etc/orv.d/A_PRODUCT/config.xml"));
}

TEST_F(ReservedStart, LoadsThePlugInsWhereTheDirectoryCannotBeOpenedAnyMore) {
  putProduct("ZENTORAGENT3000", {{"StartCommand", putCommand("starve", "kill -USR1 $PPID")}});
  m_started.front() = "starve";
  const auto before = std::signal(SIGUSR1, [](int) { DescriptorsTaken::take(); });
  const auto printed = outputOf([&] {
    const DescriptorsTaken taken;
    EXPECT_TRUE(m_helper.StartORVService());
  });
  static_cast<void>(std::signal(SIGUSR1, before));
  EXPECT_EQ(printed.out, "Opendir failed for config directory.\n");
  EXPECT_EQ(calls(), m_started);
}

TEST_F(ReservedStart, IsNotUsedForAnAgentWhoseFileIsMissingMalformedOrNotTrusted) {
  const std::string config = std::string(kAgentDirectory) + "/config.xml";
  ASSERT_EQ(::chmod(config.c_str(), 0646), 0);
  expectReservedStart(false);
  putFile(config, "<Configuration>");
  ASSERT_EQ(::chmod(config.c_str(), 0644), 0);
  expectReservedStart(false);
  ASSERT_EQ(::unlink(config.c_str()), 0);
  expectReservedStart(false);
  EXPECT_EQ(calls(), Lines{});
}

TEST_F(ReservedStart, LoadsNothingFromADirectoryThatOthersMayWriteToByNow) {
  putProduct("ZENTORAGENT3000", {{"StartCommand", putCommand("open", "chmod 0777 /etc/orv.d")}});
  expectReservedStart(true, "Security Issue, Config Dir is writable by non root.\n");
  EXPECT_EQ(calls(), Lines{"open"});
}

TEST_F(ReservedStart, LoadsNothingFromADirectoryThatIsGone) {
  putProduct("ZENTORAGENT3000", {{"StartCommand", putCommand("remove", "mv /etc/orv.d /tmp/moved")}});
  expectReservedStart(true, "Failed to Access Config Dir.\n");
  EXPECT_EQ(calls(), Lines{"remove"});
}

TEST_F(ReservedStart, KeepsNothingWhereThereIsSomethingThatTheSystemRefuses) {
  putUnreadable("A_PRODUCT");
  m_helper.reserveStart();
  putUnreadable("ZENTORAGENT3000");
  expectReservedStart(false);
  EXPECT_EQ(calls(), Lines{});
}

TEST_F(ServiceControl, DoesNotStopWhenTheDirectoryIsOpenedToOthersMeanwhile) {
  putAgent();
  putPlugIn("PRODUCT");
  const WhenRead change(kAgentDirectory, [] { static_cast<void>(::chmod("/etc/orv.d", 0777)); });
  expectStop(true, "Security Issue, Config Dir is writable by non root.\n");
  EXPECT_EQ(calls(), Lines{});
}

TEST_F(ServiceControl, DoesNotStopWhenTheDirectoryGoesMeanwhile) {
  putAgent();
  putPlugIn("PRODUCT");
  const WhenRead change(kAgentDirectory, [] { static_cast<void>(::rename("/etc/orv.d", "/etc/moved")); });
  expectStop(true, "Failed to Access Config Dir.\n");
  EXPECT_EQ(calls(), Lines{});
  ASSERT_EQ(::rename("/etc/moved", "/etc/orv.d"), 0);
}

TEST_F(ServiceControl, DoesNotStopWhenTheDirectoryCannotBeOpenedAnyMore) {
  putAgent();
  putPlugIn("PRODUCT");
  const auto printed = outputOf([] {
    const NoDescriptors limit;
    const WhenRead change(kAgentDirectory, [] { NoDescriptors::begin(); });
    EXPECT_TRUE(unixCommandLineHelper().StopORVService());
  });
  EXPECT_EQ(printed.out, "Opendir failed for config directory.\n");
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
