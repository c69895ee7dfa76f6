#pragma once
// A run from its first step that may fail to its exit status.

namespace kelt::app {

/// The whole run: takes the instance lock, finds the working directory, enters the agent's binary directory, prepares
/// the crypto library, reads the command line (`argc`, `argv` as main has them) and does what it asks for
/// (app/dispatch.h). Returns the exit status. A std::runtime_error of any step becomes a status; other exceptions go
/// through, with the lock released and secrets wiped. To be called once per process.
[[nodiscard]] int runTool(int argc, char** argv);

}  // namespace kelt::app
