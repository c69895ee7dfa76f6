#pragma once
// The exit statuses, which installer scripts go by (docs/console.md).

namespace kelt::app {

/// What a run ends with. A mode switch brings its own status (helper/command_line_helper.h). 71 says that the system
/// lacks what every run needs.
enum ExitStatus : int {
  kDone = 0,                    ///< also for steps whose failure is only told
  kCommandLineRefused = 1,      ///< or the help was shown
  kWrongVersion = 2,            ///< or the agent's configuration cannot be read
  kHotfixConflict = 3,          ///< likewise
  kServiceNotStarted = 4,       ///< no start command was found
  kServiceNotStopped = 5,       ///< no stop command was found; nothing was changed
  kNoWorkingDirectory = 8,      ///< or the agent's binary directory cannot be entered
  kKeysNotImported = 16,        ///< by `-k`; the agent was started again
  kNotLocked = 17,              ///< or another std::runtime_error ended the run
  kNoCryptoLogger = 18,         ///< for want of memory
  kNoStandardDescriptors = 71,  ///< nothing was done
  kOutOfMemory = 71,            ///< all that was begun was ended before
};

}  // namespace kelt::app
