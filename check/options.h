#pragma once
// The command line.

#include <string>

#include "base/result.h"

namespace kelt::check {

/// How the report is printed: for people, for monitoring systems, for programs.
enum class Format { kTerminal, kPlain, kJson };

/// What a run is to do. Given twice, an option's last value counts.
struct Options {
  std::string source;  ///< the directory of a rehearsal; empty for none
  std::string server;  ///< the server to look at; empty for none
  Format format = Format::kPlain;
  bool bVerbose = false;  ///< shows what is ok, too
  bool bHelp = false;
  bool bVersion = false;
};

/// Reads the command line as main has it. Long options may be shortened as far as they are unique, and a value may
/// follow a "=". The format is kTerminal where neither --plain nor --json is given. Errors: kRefused, with a sentence.
[[nodiscard]] Result<Options> optionsIn(int argc, char** argv);

/// What --help prints.
[[nodiscard]] const char* helpText();

}  // namespace kelt::check
