#pragma once
// Several processes that go through one list of points together.

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace kelt::tests::gate {

/// Does one point and returns what is to be reported of it, lines of text or nothing.
using Work = std::function<std::string(std::size_t point)>;

/// Runs in a new process: makes what it needs and returns the work. Gets the number of the process, from 0.
using MakeWork = std::function<Work(unsigned worker)>;

/// Has `count` processes do the points 0 to `points` - 1, each by whoever is free, and returns all that was reported,
/// in no order. Ends the program with a message when a process fails. There may be no threads.
[[nodiscard]] std::vector<std::string> share(std::size_t points, unsigned count, const MakeWork& makeWork);

}  // namespace kelt::tests::gate
