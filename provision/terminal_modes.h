#pragma once
// The modes of the terminal that the prompts read from. QuietTerminal (provision/quiet_terminal.h) calls these in an
// order that leaves no terminal without echo.

#include <sys/ioctl.h>
#include <termios.h>  // IWYU pragma: keep

namespace kelt::provision {

extern termio tioSave;  ///< the state saved before prompting
extern termio tioMode;  ///< the working copy

/// Saves the state of the terminal `fd` in tioSave. Returns 0, or -1 with errno where it is no terminal.
int TtySave(int fd);

/// Switches echo off, at once; line editing stays as it is. Returns 0, or -1 with errno.
/// tioSave is left alone.
int TtyNoEcho(int fd);

/// Puts the terminal back as tioSave has it, once what was written to it is out. Returns 0, or -1 with errno.
/// Only after a TtySave that succeeded: tioSave is all zeros before that.
int TtyRestore(int fd);

}  // namespace kelt::provision
