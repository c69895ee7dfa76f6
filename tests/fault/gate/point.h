#pragma once
// The points of the gate: which command, which call of it, what happens there.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "fault/gate/command.h"

namespace kelt::tests::gate {

enum class Mode {
  kOnce,       ///< the call fails once
  kOn,         ///< it fails, and so does all that wants the same from there on
  kKill,       ///< SIGKILL before the call, then the same command undisturbed
  kTerminate,  ///< SIGTERM before the call
  kAllocate,   ///< the allocation fails once
  kPair,       ///< the call fails, and a SIGKILL comes while that is being dealt with
};

inline constexpr Mode kModes[] = {Mode::kOnce, Mode::kOn, Mode::kKill, Mode::kTerminate, Mode::kAllocate};

/// "once", "on", "kill", "term", "alloc", "pair".
[[nodiscard]] std::string nameOf(Mode mode);

struct Point {
  std::size_t command = 0;  ///< index in the suite
  Mode mode = Mode::kOnce;
  Spot spot;              ///< of the call, or of the allocation
  int error = 0;          ///< errno, in the modes that let a call fail
  std::size_t later = 0;  ///< kPair: the kill comes at this call after the failing one
};

/// All points of a command in one mode, in the order of its calls.
[[nodiscard]] std::vector<Point> pointsOf(std::size_t command, const Undisturbed& undisturbed, Mode mode);

/// "openat-7", "0.2/close-1" of process 0.2, and for the fifth allocation "5".
[[nodiscard]] std::string nameOf(const Spot& spot);

/// "unmanaged:once:openat-7:EIO", "managed-utf8:kill:0.2/close-1", "managed-utf8:pair:openat-7:EIO:4".
[[nodiscard]] std::string nameOf(const Point& point, const Suite& suite);

/// The point of that name, as nameOf gives it; none for anything else.
[[nodiscard]] std::optional<Point> pointNamed(const std::string& name, const Suite& suite);

}  // namespace kelt::tests::gate
