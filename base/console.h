#pragma once
// The console: the one way in which text reaches standard output and standard error.
//
// The C and C++ streams are not used: a stream there is narrow or wide from its first use on, and loses text of the
// other kind. Here every text goes out as UTF-8 by write(2), at once and in program order, so that nothing is buffered
// when a child is started. Errors are swallowed: a closed or full output changes no behaviour. No operation takes
// memory.

#include <string_view>

namespace kelt::base {

/// Writes `text` (UTF-8, with whatever line ends it carries) to standard output. Continues after partial writes and
/// signals, waits for a non-blocking output, and gives up silently on any other error.
void print(std::string_view text);

/// Writes `text` and a line end to standard output; up to 4 KB in one write, where the system allows.
void printLine(std::string_view text);

/// The same for wide text, as UTF-8 (base/utf.h).
void printLine(std::wstring_view text);

/// Writes `text` and a line end to standard error, likewise.
void printErrorLine(std::string_view text);
void printErrorLine(std::wstring_view text);

}  // namespace kelt::base
