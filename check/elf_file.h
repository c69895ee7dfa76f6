#pragma once
// What the header of an ELF file tells before anybody loads it.
// A part or a command that was copied from another device, or cut off by a full disk, is found by it. The descriptors
// keep their position.

namespace kelt::check {

/// Why the dynamic loader would not take the open file `fd` for a shared object of this machine, as far as its header
/// tells, as the end of a sentence; null where it would.
[[nodiscard]] const char* whyNoSharedObject(int fd);

/// Why the system would not run the open file `fd`, which may be executed, as a program, likewise; null where it would,
/// and for what is no ELF file: that may be a script.
[[nodiscard]] const char* whyNoProgram(int fd);

}  // namespace kelt::check
