#pragma once
// The environment: what of it acts on this process, and what a started command gets.

namespace kelt::base {

/// Leaves this process only the variables that are meant for it, since the others tell libraries what to load and where
/// to write, as root: PATH, PWD, LD_LIBRARY_PATH (which the loader has followed before main) and those that name a
/// proxy (http_proxy, https_proxy, all_proxy, no_proxy, and all but the first in capitals too). Takes no memory and
/// changes no string: the environment as it was stays aside, for giveEnvironmentBack. To be called once, at the start
/// of main, before a library reads the environment.
void shedEnvironment();

/// Puts the environment back as it was before shedEnvironment, in its order; nothing where that was not called. For a
/// child, between fork and exec (async-signal-safe).
void giveEnvironmentBack();

}  // namespace kelt::base
