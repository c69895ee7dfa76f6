#include "fault/gate/point.h"

#include <array>
#include <cstdlib>
#include <sstream>

namespace kelt::tests::gate {
namespace {

constexpr std::array kModeNames = {"once", "on", "kill", "term", "alloc", "pair"};

bool bWithErrors(Mode mode) {
  return mode == Mode::kOnce || mode == Mode::kOn || mode == Mode::kPair;
}

std::vector<std::string> wordsOf(const std::string& text, char separator) {
  std::vector<std::string> words;
  std::istringstream stream(text);
  for (std::string word; std::getline(stream, word, separator);)
    words.push_back(word);
  return words;
}

/// "openat-7", "0.2/close-1", and for the fifth allocation "5".
std::optional<Spot> spotNamed(const std::string& name) {
  Spot spot;
  const std::size_t slash = name.find('/');
  if (slash != std::string::npos) spot.process = name.substr(0, slash);
  const std::string rest = name.substr(slash == std::string::npos ? 0 : slash + 1);
  const std::size_t dash = rest.rfind('-');
  if (dash != std::string::npos) spot.number = callNumber(rest.substr(0, dash));
  spot.call = std::strtoul(rest.c_str() + (dash == std::string::npos ? 0 : dash + 1), nullptr, 10);
  return spot.call == 0 || (dash != std::string::npos && spot.number < 0) ? std::nullopt : std::optional(spot);
}

std::vector<Point> allocationPoints(std::size_t command, const Undisturbed& undisturbed) {
  std::vector<Point> points;
  for (const Spot& spot : undisturbed.allocations)
    points.push_back({command, Mode::kAllocate, spot, 0, 0});
  return points;
}

}  // namespace

std::string nameOf(Mode mode) {
  return kModeNames.at(static_cast<std::size_t>(mode));
}

std::string nameOf(const Spot& spot) {
  const std::string process = spot.process == "0" ? "" : spot.process + "/";
  return process + (spot.number < 0 ? "" : tests::nameOf(spot.number) + "-") + std::to_string(spot.call);
}

std::vector<Point> pointsOf(std::size_t command, const Undisturbed& undisturbed, Mode mode) {
  if (mode == Mode::kAllocate) return allocationPoints(command, undisturbed);
  std::vector<Point> points;
  for (const RecordedCall& call : undisturbed.calls) {
    if (!bWithErrors(mode)) {
      points.push_back({command, mode, call.spot, 0, 0});
      continue;
    }
    for (const CallError& error : call.errors) {
      // An interruption does not last.
      if (mode == Mode::kOn && error.want == Want::kNothing) continue;
      points.push_back({command, mode, call.spot, error.number, 0});
    }
  }
  return points;
}

std::string nameOf(const Point& point, const Suite& suite) {
  std::string name = suite.commands.at(point.command).name + ":" + nameOf(point.mode) + ":" + nameOf(point.spot);
  if (bWithErrors(point.mode)) name += ":" + errorName(point.error);
  if (point.mode == Mode::kPair) name += ":" + std::to_string(point.later);
  return name;
}

std::optional<Point> pointNamed(const std::string& name, const Suite& suite) {
  const std::vector<std::string> words = wordsOf(name, ':');
  if (words.size() < 3) return std::nullopt;
  Point point;
  while (point.command < suite.commands.size() && suite.commands[point.command].name != words[0])
    ++point.command;
  std::size_t mode = 0;
  while (mode < kModeNames.size() && words[1] != kModeNames.at(mode))
    ++mode;
  const auto spot = spotNamed(words[2]);
  if (!spot || point.command == suite.commands.size() || mode == kModeNames.size()) return std::nullopt;
  point.spot = *spot;
  point.mode = static_cast<Mode>(mode);
  if (!bWithErrors(point.mode)) return words.size() == 3 ? std::optional(point) : std::nullopt;
  point.error = words.size() > 3 ? errorNumber(words[3]) : 0;
  if (point.error == 0) return std::nullopt;
  if (point.mode == Mode::kPair) point.later = words.size() > 4 ? std::strtoul(words[4].c_str(), nullptr, 10) : 0;
  return point;
}

}  // namespace kelt::tests::gate
