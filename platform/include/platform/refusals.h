#pragma once
// Saying why a file was refused, where the console's texts do not.

#include <string>

#include "base/result.h"

namespace kelt::platform {

/// Writes the message of `error`, which should name the path and the reason, to the agent log as an error of the source
/// "files", once in the life of the process however often it comes. What is merely missing (kNotFound) was not refused
/// and is not logged. Never fails: where there is no memory for it, nothing is logged.
void logRefusal(const Error& error) noexcept;

/// The same for an error of the file at `path`, which is put before its message where that does not name it.
void logRefusal(const std::string& path, const Error& error) noexcept;

}  // namespace kelt::platform
