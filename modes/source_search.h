#pragma once
// Where the directory of -d is looked for.

#include <array>
#include <string>

namespace kelt::modes {

/// The places, in their order: as typed, below `currentDir` (where the tool was started), and that itself. A relative
/// one is looked for from the working directory of the process, which is the agent's binary directory.
/// The first that holds a site list and all key files is taken; one that lacks any of them is passed over.
[[nodiscard]] std::array<std::wstring, 3> sourceCandidates(const std::wstring& sourceDir,
                                                           const std::wstring& currentDir);

}  // namespace kelt::modes
