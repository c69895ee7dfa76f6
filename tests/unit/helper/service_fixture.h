#pragma once
// A device on which the agent and its plug-ins are started and stopped.

#include <string>
#include <vector>

#include "support/agent_on_device.h"
#include "support/private_device.h"

#include "helper/unix_command_line_helper.h"

namespace kelt::tests {

inline constexpr const char* kAgentDirectory = "/etc/orv.d/ZENTORAGENT3000";

/// An agent and plug-ins whose commands write down that they were run (calls()).
class ServiceFixture : public PrivateDevice {
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
    const auto printed = outputOf([&] { EXPECT_EQ(helper::unixCommandLineHelper().StartORVService(), result); });
    EXPECT_EQ(printed.out, output);
    EXPECT_EQ(printed.err, "");
  }
  static void expectStop(bool result, const std::string& output = "") {
    const auto printed = outputOf([&] { EXPECT_EQ(helper::unixCommandLineHelper().StopORVService(), result); });
    EXPECT_EQ(printed.out, output);
    EXPECT_EQ(printed.err, "");
  }

  std::string m_agent;
  std::string m_plugIn;
};

}  // namespace kelt::tests
