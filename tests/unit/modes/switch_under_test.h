#pragma once
// A helper whose service and key import are told what to do, and write down that they were asked.

#include <functional>
#include <string>
#include <vector>

#include "helper/unix_command_line_helper.h"

namespace kelt::tests {

class SwitchUnderTest : public helper::unixCommandLineHelper {
 public:
  bool StartORVService() override { return note("start", m_onStart); }
  bool StopORVService() override { return note("stop", m_onStop); }
  bool ImportKeys(bool fromUpdateDir) override {
    return note(fromUpdateDir ? "import from update" : "import", m_onImport);
  }

  std::function<bool()> m_onStart;
  std::function<bool()> m_onStop;
  std::function<bool()> m_onImport;
  std::vector<std::string> m_steps;

 private:
  bool note(const char* step, const std::function<bool()>& action) {
    m_steps.emplace_back(step);
    return !action || action();
  }
};

}  // namespace kelt::tests
