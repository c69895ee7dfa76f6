// What running a command does to its process is tested in command_execution_test.cpp.

#include "helper/prepared_command.h"

#include <cstdint>
#include <sys/stat.h>

#include "limited_memory.h"
#include "support/agent_on_device.h"
#include "support/log.h"
#include "support/private_device.h"
#include "support/process_limit.h"

namespace kelt::helper {
namespace {

using Lines = std::vector<std::string>;

class Prepared : public tests::PrivateDevice {
 protected:
  void SetUp() override {
    PrivateDevice::SetUp();
    tests::putDirectory("/opt/Quorvane/orv/scratch/logs");
    for (const char* directory : {"/tmp", "/opt/Quorvane/orv/scratch/logs"})
      ASSERT_EQ(::chmod(directory, 0777), 0);
    m_command = tests::putCommand("command");
  }

  std::string m_command;
};

TEST_F(Prepared, RunsWithoutMemory) {
  const PreparedCommand command({m_command, "one", "two words that are longer than what fits into a string object"});
  tests::limitBlocks(0);
  command.run(nullptr);
  command.runPatiently(nullptr);
  tests::limitBlocks(SIZE_MAX);
  EXPECT_EQ(tests::calls(), Lines(2, "command one two words that are longer than what fits into a string object"));
}

TEST_F(Prepared, RunsAfterItWasMoved) {
  PreparedCommand command({m_command, "one"});
  const PreparedCommand moved(std::move(command));
  moved.run(nullptr);
  EXPECT_EQ(tests::calls(), Lines{"command one"});
}

TEST_F(Prepared, AsksAgainForAProcessThatTheSystemDoesNotHaveAndSaysSo) {
  const int status = tests::statusOfProcess([&] {
    const PreparedCommand command({m_command});
    if (!tests::bAlone()) return false;
    tests::startTimer(tests::allowOthersAfterAWhile);
    command.runPatiently(nullptr);
    return true;
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(tests::calls(), Lines{"command"});
  EXPECT_EQ(tests::errorsLogged(), Lines{"The system has no process for a command of the agent; trying again."});
}

TEST_F(Prepared, GivesUpInTheEndAndSaysSo) {
  const int status = tests::statusOfProcess([&] {
    const PreparedCommand command({m_command});
    if (!tests::bAlone()) return false;
    tests::startTimer([](int) {});
    command.runPatiently(nullptr);
    return true;
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(tests::calls(), Lines{});
  EXPECT_EQ(tests::errorsLogged(), (Lines{"The system has no process for a command of the agent; trying again.",
                                          "The system had no process for a command of the agent: it was not run."}));
}

}  // namespace
}  // namespace kelt::helper
