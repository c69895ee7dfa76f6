#pragma once

#include <string>

#include "installation.h"

#include "helper/unix_command_line_helper.h"

namespace kelt::tests {

/// An installation, and a complete source directory /tmp/k to switch it to managed mode from.
class SwitchFromSource : public Installation {
 protected:
  void SetUp() override {
    Installation::SetUp();
    putSource("/tmp/k");
  }

  /// Switches from /tmp/k, which must give `result`; what was printed.
  static std::string run(bool result) {
    helper::unixCommandLineHelper helper;
    helper.SetSourceDir(L"/tmp/k");
    const auto printed = outputOf([&] { EXPECT_EQ(helper.managedModeTask(), result); });
    EXPECT_EQ(printed.err, "");
    return printed.out;
  }
};

}  // namespace kelt::tests
