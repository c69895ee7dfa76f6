#include "fault/gate/exceptions.h"

#include <algorithm>
#include <sstream>
#include <stdexcept>

namespace kelt::tests::gate {
namespace {

std::string trimmed(const std::string& text) {
  const std::size_t begin = text.find_first_not_of(" \t");
  if (begin == std::string::npos) return {};
  return text.substr(begin, text.find_last_not_of(" \t") - begin + 1);
}

std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::istringstream stream(text);
  for (std::string part; std::getline(stream, part, separator);)
    parts.push_back(trimmed(part));
  return parts;
}

std::vector<std::string> listIn(const std::string& field) {
  return field == "*" ? std::vector<std::string>() : split(field, ',');
}

Exception exceptionIn(const std::string& line) {
  const std::vector<std::string> fields = split(line, '|');
  constexpr std::size_t kFields = 8;
  const bool bWhole = fields.size() == kFields &&
                      std::none_of(fields.begin(), fields.end(), [](const auto& field) { return field.empty(); });
  if (!bWhole) throw std::runtime_error("not an exception: " + line);
  return {fields[0],
          fields[1],
          listIn(fields[2]),
          listIn(fields[3]),
          listIn(fields[4]),
          listIn(fields[5]),
          fields[6] == "*" ? "" : fields[6],
          fields[7],
          fields[0].ends_with('?')};
}

bool bOneOf(const std::vector<std::string>& allowed, const std::string& text) {
  return allowed.empty() || std::find(allowed.begin(), allowed.end(), text) != allowed.end();
}

bool bAnyOf(const std::vector<std::string>& wanted, const std::set<std::string>& there) {
  return wanted.empty() ||
         std::any_of(wanted.begin(), wanted.end(), [&](const std::string& one) { return there.count(one) != 0; });
}

bool bMatches(const Exception& exception, const Case& violation) {
  return exception.kind == violation.kind && bOneOf(exception.commands, violation.command) &&
         bOneOf(exception.modes, violation.mode) && bAnyOf(exception.roles, violation.roles) &&
         bAnyOf(exception.refused, violation.refused) && violation.detail.find(exception.detail) != std::string::npos;
}

}  // namespace

Exceptions::Exceptions(const std::string& text) {
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    if (!trimmed(line).empty() && !line.starts_with('#')) m_exceptions.push_back(exceptionIn(line));
  }
}

bool Exceptions::excuse(const Case& violation) {
  const auto found = std::find_if(m_exceptions.begin(), m_exceptions.end(),
                                  [&](const Exception& exception) { return bMatches(exception, violation); });
  if (found == m_exceptions.end()) return false;
  ++found->matches;
  return true;
}

}  // namespace kelt::tests::gate
