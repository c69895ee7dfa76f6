#pragma once
// Where what the trials use stands on a private device: below /gate, so that no path of the machine, with its blanks
// and colons, gets into commands and variables.

#include <string>

#include "fault/gate/trials.h"

namespace kelt::tests::gate {

inline constexpr const char* kAgentProgram = "/gate/kelt_gate_agent";

/// Brings the stand-in agent and the allocator there, from the directory of the running program.
void bringPrograms();

/// A setting with them. `name` tells the processes apart that have one each.
[[nodiscard]] Setting settingFor(const std::string& tool, const std::string& name);

}  // namespace kelt::tests::gate
