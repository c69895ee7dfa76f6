#pragma once
// The order in which a run does what it was asked for.

#include <string>

#include "app/command_line_data.h"
#include "helper/command_line_helper.h"

namespace kelt::app {

/// Does what `data` asks for, by the operations of `agent`, and returns the exit status of the run, the one of the
/// first step that failed. In this order: the version check; the conflict check; `-version`, which ends the run; the
/// switch to managed mode, or else to unmanaged mode, which end the run with their status; start; stop; key import; the
/// custom properties. `-m` without `-d` prints an error and is then taken as not given.
///
/// Before anything of the installation is written, what interrupted runs left in it is removed (helper/leftovers.h).
///
/// `currentDir` is where the tool was started. While the service is stopped for a key import, SIGINT, SIGTERM and
/// SIGHUP wait until it runs again.
[[nodiscard]] int runOptions(CommandLineData& data, const std::wstring& currentDir, helper::CommandLineHelper& agent);

}  // namespace kelt::app
