#include "support/child.h"
#include "support/private_device.h"
#include "unit/app/recording_agent.h"

#include "app/dispatch.h"

namespace kelt::app {
namespace {

/// Says what it was told as soon as it is told, since its process may end by a signal.
class TellingAgent : public tests::RecordingAgent {
 public:
  bool StartORVService() override {
    tell("start\n");
    return tests::RecordingAgent::StartORVService();
  }
  bool StopORVService() override {
    tell("stop\n");
    return tests::RecordingAgent::StopORVService();
  }

 private:
  static void tell(std::string_view text) { (void)!::write(STDOUT_FILENO, text.data(), text.size()); }
};

class DispatchSignalsTest : public tests::PrivateDevice {
 protected:
  /// Runs a key import during which `signal` arrives. Returns the signal that ended the process, or 0.
  int importUnder(int signal, bool bImports = true, bool bNoStart = false) {
    int status = 0;
    const tests::Output output = tests::outputOf([&] {
      status = tests::Child([&] {
                 CommandLineData data;
                 data.importKeysOnly = true;
                 data.noStart = bNoStart;
                 data.customPropsGiven = true;
                 TellingAgent agent;
                 agent.signalDuringImport = signal;
                 agent.bImports = bImports;
                 return runOptions(data, L"/", agent);
               }).wait();
    });
    m_out = output.out;
    return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
  }

  std::string m_out;
};

TEST_F(DispatchSignalsTest, ASignalDuringAKeyImportEndsTheRunOnceTheServiceRunsAgain) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    tests::putFile("/opt/Quorvane/orv/scratch/CustomProps.xml", "old");
    EXPECT_EQ(importUnder(signal), signal);
    EXPECT_EQ(m_out, "stop\nstart\n");
    EXPECT_EQ(tests::contentOf("/opt/Quorvane/orv/scratch/CustomProps.xml"), "old") << "nothing follows";
  }
}

TEST_F(DispatchSignalsTest, SoItDoesWhenTheImportFails) {
  EXPECT_EQ(importUnder(SIGTERM, false), SIGTERM);
  EXPECT_EQ(m_out, "stop\nstart\n");
}

TEST_F(DispatchSignalsTest, AndWhenTheServiceIsToStayStopped) {
  EXPECT_EQ(importUnder(SIGTERM, true, true), SIGTERM);
  EXPECT_EQ(m_out, "stop\n");
}

}  // namespace
}  // namespace kelt::app
