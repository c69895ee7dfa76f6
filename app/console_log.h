#pragma once
// Where the crypto library's messages go: the console. The agent's log is not written.

namespace kelt::app {

// The three are callbacks with the signatures that the library asks for. None fails: a console that cannot be written
// to is passed over. They throw std::bad_alloc.

/// Prints "keltconfig\t[I] " and the message to standard output. The source is ignored; a null message counts as empty.
void log_single_funci(const wchar_t* source, const wchar_t* message);

/// Prints "keltconfig\t[E] " and the message to standard error, likewise.
void log_single_funce(const wchar_t* source, const wchar_t* message);

/// Prints "keltconfig\t" and the message to standard output. The level is ignored.
void log_single_func(int level, const wchar_t* message);

}  // namespace kelt::app
