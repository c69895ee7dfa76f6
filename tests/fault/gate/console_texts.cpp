#include "fault/gate/console_texts.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <sstream>

namespace kelt::tests::gate {
namespace {

constexpr std::string_view kEllipsis = "…";

void replaceAll(std::string& text, std::string_view old, std::string_view fresh) {
  for (std::size_t at = text.find(old); at != std::string::npos; at = text.find(old, at + fresh.size()))
    text.replace(at, old.size(), fresh);
}

/// The parts of a text that stand as they are, in order.
std::vector<std::string> partsOf(std::string text) {
  replaceAll(text, "\\t", "\t");
  std::vector<std::string> parts;
  for (std::size_t at = text.find(kEllipsis); at != std::string::npos; at = text.find(kEllipsis)) {
    parts.push_back(text.substr(0, at));
    text.erase(0, at + kEllipsis.size());
  }
  parts.push_back(text);
  return parts;
}

bool bMatches(const std::vector<std::string>& parts, std::string_view line) {
  if (parts.size() == 1) return line == parts.front();
  if (!line.starts_with(parts.front())) return false;
  line.remove_prefix(parts.front().size());
  for (std::size_t n = 1; n + 1 < parts.size(); ++n) {
    const std::size_t at = line.find(parts[n]);
    if (at == std::string_view::npos) return false;
    line.remove_prefix(at + parts[n].size());
  }
  return line.ends_with(parts.back());
}

}  // namespace

ConsoleTexts::ConsoleTexts(const std::string& document) {
  std::istringstream lines(document);
  for (std::string line; std::getline(lines, line);) {
    if (!line.starts_with("| ")) continue;
    if (line[2] == '"') {
      const std::size_t end = line.find("\" |", 3);
      if (end != std::string::npos) m_texts.push_back(partsOf(line.substr(3, end - 3)));
    } else if (std::isdigit(static_cast<unsigned char>(line[2])) != 0) {
      m_statuses.insert(std::atoi(line.c_str() + 2));
    }
  }
}

bool ConsoleTexts::bSeveral(std::string_view line) const {
  if (line.empty()) return true;
  return std::any_of(m_texts.begin(), m_texts.end(), [&](const auto& parts) {
    return parts.size() == 1 && !parts.front().empty() && line.starts_with(parts.front()) &&
           bSeveral(line.substr(parts.front().size()));
  });
}

bool ConsoleTexts::bKnown(std::string_view line) const {
  return std::any_of(m_texts.begin(), m_texts.end(), [&](const auto& parts) { return bMatches(parts, line); }) ||
         bSeveral(line);
}

std::string ConsoleTexts::firstUnknownLine(std::string_view output) const {
  bool bResult = false;  // the text before ends with a number on a line of its own
  while (!output.empty()) {
    const std::string_view line = output.substr(0, output.find('\n'));
    if (!bKnown(line) && !(bResult && line == "0")) return std::string(line);
    bResult = line == "Curl initialization ERROR";
    output.remove_prefix(std::min(output.size(), line.size() + 1));
  }
  return {};
}

}  // namespace kelt::tests::gate
