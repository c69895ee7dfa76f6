// A start for which everything was kept in advance.

#include "helper/reserved_start.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdint>
#include <fcntl.h>
#include <filesystem>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "limited_memory.h"
#include "service_fixture.h"
#include "support/log.h"

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

class ReservedStart : public kelt::tests::ServiceFixture {
 protected:
  void SetUp() override {
    ServiceFixture::SetUp();
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

}  // namespace
