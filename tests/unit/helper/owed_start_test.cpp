#include "helper/owed_start.h"

#include <csignal>
#include <string>
#include <unistd.h>

#include "support/child.h"
#include "support/private_device.h"
#include "support/waiting.h"

namespace kelt::helper {
namespace {

using tests::exists;
using tests::putDirectory;
using tests::putFile;

constexpr const char* kStart = "/run/orv-locks/agent-stopped";
constexpr const char* kPlugIns = "/run/orv-locks/plug-ins-unloaded";

class OwedStart : public tests::PrivateDevice {
 protected:
  void SetUp() override {
    PrivateDevice::SetUp();
    putDirectory("/run/orv-locks", 0700);
  }
};

TEST_F(OwedStart, IsAMarkOfEachKindUntilItIsSettled) {
  owe(Owed::kStart);
  EXPECT_TRUE(bOwed(Owed::kStart));
  EXPECT_FALSE(bOwed(Owed::kPlugIns));
  EXPECT_EQ(tests::modeOf(kStart), 0600U);
  owe(Owed::kPlugIns);
  settle(Owed::kStart);
  EXPECT_FALSE(exists(kStart));
  EXPECT_TRUE(exists(kPlugIns));
  settle(Owed::kPlugIns);
  EXPECT_EQ(tests::namesIn("/run/orv-locks"), std::vector<std::string>());
}

TEST_F(OwedStart, CanBeMarkedAndSettledTwice) {
  owe(Owed::kStart);
  owe(Owed::kStart);
  settle(Owed::kStart);
  settle(Owed::kStart);
  EXPECT_FALSE(bOwed(Owed::kStart));
}

TEST_F(OwedStart, FollowsNoLinkInThePlaceOfTheMark) {
  putFile("/tmp/elsewhere", "kept");
  ASSERT_EQ(::symlink("/tmp/nowhere", kStart), 0);
  owe(Owed::kStart);
  EXPECT_FALSE(exists("/tmp/nowhere"));
  settle(Owed::kStart);
  EXPECT_FALSE(exists(kStart));
}

TEST_F(OwedStart, IsDoneWithoutWhereThereIsNoDirectoryForIt) {
  ASSERT_EQ(::rmdir("/run/orv-locks"), 0);
  owe(Owed::kStart);
  EXPECT_FALSE(bOwed(Owed::kStart));
  settle(Owed::kStart);
}

/// A process that owes the start, says so by a file and then runs on until it is killed.
class Command {
 public:
  Command()
      : m_child([] {
          owe(Owed::kStart);
          putFile("/tmp/owed", "");
          for (;;)
            ::pause();
          return 0;
        }) {
    EXPECT_TRUE(tests::bComesTrue([] { return exists("/tmp/owed"); }));
  }
  Command(const Command&) = delete;
  Command& operator=(const Command&) = delete;
  ~Command() { kill(); }
  void kill() { ::kill(m_child.pid(), SIGKILL); }
  [[nodiscard]] pid_t pid() const { return m_child.pid(); }

 private:
  tests::Child m_child;
};

TEST_F(OwedStart, IsAwaitedAsLongAsItsCommandRuns) {
  Command command;
  tests::Child waiting([] {
    awaitCommand(Owed::kStart);
    return exists("/tmp/killed") ? 0 : 1;
  });
  EXPECT_TRUE(tests::bComesTrue([&] { return tests::bSleeps("/proc/" + std::to_string(waiting.pid())); }));
  putFile("/tmp/killed", "");
  command.kill();
  EXPECT_EQ(waiting.exitStatus(), 0);
}

TEST_F(OwedStart, IsNotAwaitedWhereTheOtherIsOwed) {
  const Command command;
  awaitCommand(Owed::kPlugIns);
}

TEST_F(OwedStart, IsNotAwaitedWhereTheMarkNamesNobody) {
  awaitCommand(Owed::kStart);
  for (const char* text : {"", "short", "no process has such a number"}) {
    putFile(kStart, text);
    awaitCommand(Owed::kStart);
  }
}

TEST_F(OwedStart, NamesItsCommandAsLongAsThatRuns) {
  EXPECT_EQ(runningCommand(Owed::kStart), 0);
  putFile(kStart, "no process has such a number");
  EXPECT_EQ(runningCommand(Owed::kStart), 0);
  Command command;
  EXPECT_EQ(runningCommand(Owed::kStart), command.pid());
  EXPECT_EQ(runningCommand(Owed::kPlugIns), 0);
  command.kill();
  EXPECT_TRUE(tests::bComesTrue([] { return runningCommand(Owed::kStart) == 0; }));
}

}  // namespace
}  // namespace kelt::helper
