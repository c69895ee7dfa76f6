#include "helper/agent_log.h"

#include <cstdint>

#include "limited_memory.h"
#include "support/log.h"
#include "support/private_device.h"

namespace kelt::helper {
namespace {

constexpr const char* kLog = "/opt/Quorvane/orv/scratch/logs/keltcfg.log";

class AgentLog : public tests::PrivateDevice {
 protected:
  void SetUp() override {
    PrivateDevice::SetUp();
    tests::putDirectory("/opt/Quorvane/orv/scratch");
  }
  void TearDown() override { tests::limitBlocks(SIZE_MAX); }
};

TEST_F(AgentLog, TellsEventsAndProblemsApartUnderTheNameOfTheTool) {
  logEvent("done: /tmp/\xC3\xA9");
  logProblem("not done: /tmp/\xFF");
  const std::string log = tests::contentOf(kLog);
  const std::size_t second = log.find('\n') + 1;
  EXPECT_NE(log.substr(0, second).find("\tI\t"), std::string::npos) << log;
  EXPECT_TRUE(log.substr(0, second).ends_with("\tkeltcfg\tdone: /tmp/\xC3\xA9\n")) << log;
  EXPECT_NE(log.substr(second).find("\tE\t"), std::string::npos) << log;
  EXPECT_TRUE(log.ends_with("\tkeltcfg\tnot done: /tmp/\\udcff\n")) << log;
}

TEST_F(AgentLog, LeavesALineOutThatThereIsNoMemoryFor) {
  tests::limitBlocks(0);
  logEvent("a line that no small string holds, whatever it says of whom");
  logProblem("a line that no small string holds, whatever it says of whom");
  tests::limitBlocks(SIZE_MAX);
  EXPECT_FALSE(tests::exists(kLog));
}

}  // namespace
}  // namespace kelt::helper
