#pragma once

namespace kelt::app {

/// What a run ends with. A mode switch brings its own status (helper/command_line_helper.h).
enum ExitStatus : int {
  kDone = 0,
  kCommandLineRefused = 1,  ///< or the help was shown
  kWrongVersion = 2,
  kHotfixConflict = 3,
  kServiceNotStarted = 4,
  kServiceNotStopped = 5,
  kNoWorkingDirectory = 8,
  kKeysNotImported = 16,
  kNotLocked = 17,  ///< or another std::runtime_error ended the run
  kNoCryptoLogger = 18,
  kNoStandardDescriptors = 71,  ///< nothing was done
  kOutOfMemory = 71,            ///< all that was begun was ended before
};

}  // namespace kelt::app
