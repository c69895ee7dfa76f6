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

std::string nameOf(const Spot& spot) {
  const std::string number = std::to_string(spot.call);
  return spot.process == "0" ? number : spot.process + "/" + number;
}

Spot spotNamed(const std::string& name) {
  const std::size_t slash = name.find('/');
  if (slash == std::string::npos) return {"0", std::strtoul(name.c_str(), nullptr, 10)};
  return {name.substr(0, slash), std::strtoul(name.c_str() + slash + 1, nullptr, 10)};
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
  point.spot = spotNamed(words[2]);
  if (point.command == suite.commands.size() || mode == kModeNames.size() || point.spot.call == 0) return std::nullopt;
  point.mode = static_cast<Mode>(mode);
  if (!bWithErrors(point.mode)) return words.size() == 3 ? std::optional(point) : std::nullopt;
  point.error = words.size() > 3 ? errorNumber(words[3]) : 0;
  if (point.error == 0) return std::nullopt;
  if (point.mode == Mode::kPair) point.later = words.size() > 4 ? std::strtoul(words[4].c_str(), nullptr, 10) : 0;
  return point;
}

}  // namespace kelt::tests::gate
