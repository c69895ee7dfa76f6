#pragma once
// One run of keltcheck, from its command line to its exit status.

namespace kelt::check {

/// A whole run: reads the command line (`argc`, `argv` as main has them), looks, and prints the report. `bColours`:
/// whether a terminal would show them and nobody has asked for none. Returns the exit status.
[[nodiscard]] int runCheck(int argc, char** argv, bool bColours);

}  // namespace kelt::check
