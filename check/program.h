#pragma once
// Finding a program as execvp does.

#include <string>

#include "base/result.h"

namespace kelt::check {

/// The path of the program that execvp would start for `word`: `word` itself where it has a "/", else the first that
/// can be executed in the directories of PATH. Relative ones are meant from the working directory. Errors: kNotFound,
/// where there is none or its interpreter ("#!") is not there; kRefused for what cannot be executed, is empty, or made
/// for another machine; kSystem, where this user cannot tell.
[[nodiscard]] Result<std::string> findProgram(const std::string& word);

}  // namespace kelt::check
