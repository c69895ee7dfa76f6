#include "app/working_directory.h"

#include <algorithm>
#include <cstdlib>
#include <sys/stat.h>
#include <unistd.h>

#include "support/private_device.h"

namespace kelt::app {
namespace {

class WorkingDirectoryTest : public tests::PrivateDevice {
 protected:
  void SetUp() override {
    PrivateDevice::SetUp();
    ASSERT_EQ(::setenv("PWD", "/from/the/shell", 1), 0);
  }
  void TearDown() override { ASSERT_EQ(::chdir("/"), 0); }

  static void enterDeletedDirectory() {
    tests::putDirectory("/tmp/gone");
    ASSERT_EQ(::chdir("/tmp/gone"), 0);
    ASSERT_EQ(::rmdir("/tmp/gone"), 0);
  }

  /// Enters a directory whose path is `length` bytes long.
  static void enterDirectoryOf(std::size_t length) {
    ASSERT_EQ(::chdir("/tmp"), 0);
    for (std::size_t there = 4; there < length;) {
      const std::string name(std::min<std::size_t>(length - there - 1, 200), 'd');
      (void)::mkdir(name.c_str(), 0755);  // an earlier call may have made it
      ASSERT_EQ(::chdir(name.c_str()), 0);
      there += name.size() + 1;
    }
  }
};

TEST_F(WorkingDirectoryTest, ComesFromTheSystem) {
  tests::putDirectory("/tmp/caf\xe9");
  ASSERT_EQ(::chdir("/tmp/caf\xe9"), 0);
  EXPECT_EQ(currentDirectory(), "/tmp/caf\xe9");
}

TEST_F(WorkingDirectoryTest, ComesFromTheShellWhenItWasRemoved) {
  enterDeletedDirectory();
  EXPECT_EQ(currentDirectory(), "/from/the/shell");
}

TEST_F(WorkingDirectoryTest, ComesFromTheShellWhenItsPathIsTooLong) {
  enterDirectoryOf(1023);
  EXPECT_EQ(currentDirectory().value_or("").size(), 1023U);
  enterDirectoryOf(1024);
  EXPECT_EQ(currentDirectory(), "/from/the/shell");
}

TEST_F(WorkingDirectoryTest, AnEmptyVariableCountsAsSet) {
  enterDeletedDirectory();
  ASSERT_EQ(::setenv("PWD", "", 1), 0);
  EXPECT_EQ(currentDirectory(), "");
}

TEST_F(WorkingDirectoryTest, WithoutTheVariableThereIsNone) {
  enterDeletedDirectory();
  ASSERT_EQ(::unsetenv("PWD"), 0);
  EXPECT_EQ(currentDirectory(), std::nullopt);
}

TEST_F(WorkingDirectoryTest, ALongVariableIsCutAfter1023Bytes) {
  enterDeletedDirectory();
  const std::string limit = "/" + std::string(1022, 'x');
  for (const char* rest : {"", "y", "yz", "and much more"}) {
    ASSERT_EQ(::setenv("PWD", (limit + rest).c_str(), 1), 0);
    EXPECT_EQ(currentDirectory(), limit);
  }
  ASSERT_EQ(::setenv("PWD", std::string(100000, 'x').c_str(), 1), 0);
  EXPECT_EQ(currentDirectory(), std::string(1023, 'x'));
}

class AgentBinDirectoryTest : public WorkingDirectoryTest {
 protected:
  static std::string workingDirectory() {
    char buffer[4096];
    return ::getcwd(buffer, sizeof(buffer));
  }

  bool enter() {
    bool bResult = false;
    m_output = tests::outputOf([&] { bResult = enterAgentBinDirectory(); });
    EXPECT_EQ(m_output.err, "");
    return bResult;
  }

  tests::Output m_output;
};

TEST_F(AgentBinDirectoryTest, IsTheUsualOneWhereTheAgentNamesNone) {
  tests::putDirectory("/opt/Quorvane/orv/bin");
  EXPECT_TRUE(enter());
  EXPECT_EQ(workingDirectory(), "/opt/Quorvane/orv/bin");
  EXPECT_EQ(m_output.out, "");
}

TEST_F(AgentBinDirectoryTest, IsTheOneThatTheAgentNames) {
  tests::putFile("/etc/orv.d/ZENTORAGENT/config.xml",
                 "<Configuration><AgentBinDirectory>/tmp/caf\xc3\xa9</AgentBinDirectory></Configuration>");
  tests::putDirectory("/tmp/caf\xc3\xa9");
  EXPECT_TRUE(enter());
  EXPECT_EQ(workingDirectory(), "/tmp/caf\xc3\xa9");
}

TEST_F(AgentBinDirectoryTest, ThatCannotBeEnteredIsNamed) {
  EXPECT_FALSE(enter());
  EXPECT_EQ(m_output.out, "Error : Failed to change current directory to /opt/Quorvane/orv/bin\n");
  EXPECT_EQ(workingDirectory(), "/");
}

}  // namespace
}  // namespace kelt::app
