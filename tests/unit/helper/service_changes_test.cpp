// A configuration directory that changes between being searched for the agent and for plug-ins.

#include <csignal>
#include <cstdio>
#include <sys/resource.h>
#include <sys/stat.h>

#include "service_fixture.h"

using kelt::helper::unixCommandLineHelper;
using kelt::tests::calls;
using kelt::tests::kAgentDirectory;
using kelt::tests::outputOf;
using kelt::tests::putCommand;
using kelt::tests::putProduct;
using kelt::tests::WhenRead;
using Lines = std::vector<std::string>;

namespace {

class ServiceChanges : public kelt::tests::ServiceFixture {};

TEST_F(ServiceChanges, LoadsNoPlugInsWhenStartingOpensTheDirectoryToOthers) {
  putProduct("ZENTORAGENT", {{"StartCommand", putCommand("open", "chmod 0777 /etc/orv.d")}});
  putPlugIn("PRODUCT");
  expectStart(true, "Security Issue, Config Dir is writable by non root.\n");
  EXPECT_EQ(calls(), Lines{"open"});
}

TEST_F(ServiceChanges, LoadsNoPlugInsWhenStartingRemovesTheDirectory) {
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

TEST_F(ServiceChanges, LoadsNoPlugInsWhenTheDirectoryCannotBeOpenedAnyMore) {
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

TEST_F(ServiceChanges, DoesNotStopWhenTheDirectoryIsOpenedToOthersMeanwhile) {
  putAgent();
  putPlugIn("PRODUCT");
  const WhenRead change(kAgentDirectory, [] { static_cast<void>(::chmod("/etc/orv.d", 0777)); });
  expectStop(true, "Security Issue, Config Dir is writable by non root.\n");
  EXPECT_EQ(calls(), Lines{});
}

TEST_F(ServiceChanges, DoesNotStopWhenTheDirectoryGoesMeanwhile) {
  putAgent();
  putPlugIn("PRODUCT");
  const WhenRead change(kAgentDirectory, [] { static_cast<void>(::rename("/etc/orv.d", "/etc/moved")); });
  expectStop(true, "Failed to Access Config Dir.\n");
  EXPECT_EQ(calls(), Lines{});
  ASSERT_EQ(::rename("/etc/moved", "/etc/orv.d"), 0);
}

TEST_F(ServiceChanges, DoesNotStopWhenTheDirectoryCannotBeOpenedAnyMore) {
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

}  // namespace
