#pragma once
// The command line.

#include <string>

#include "app/command_line_data.h"

namespace kelt::app {

/// Fills `data` from `args`, the null-terminated arguments without the program's name. An option is the whole argument;
/// nothing is abbreviated or bundled. An empty argument ends the command line. Bytes are taken as ISO-8859-1.
///
/// Returns true when every argument was understood, whatever their combination. Otherwise prints why, or the help text,
/// and returns false; `data` then holds what was understood.
///
/// Whatever follows `-P` is overwritten in `args`, so that it no longer stands in the process's list of arguments.
[[nodiscard]] bool ParseCommandLineArg(char** args, CommandLineData& data);

/// UTF-8 to wide, without loss for bytes that are no UTF-8. Never fails.
[[nodiscard]] std::wstring utf8_to_unicode(const std::string& utf8);

}  // namespace kelt::app
