#pragma once
// What the agent log holds on the private device.

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace kelt::tests {

/// The texts of the lines marked `mark` in the log in its usual place; none where there is no log.
inline std::vector<std::string> textsLogged(const std::string& mark) {
  std::vector<std::string> texts;
  std::ifstream log("/opt/Quorvane/orv/scratch/logs/keltcfg.log");
  for (std::string line; std::getline(log, line);) {
    std::istringstream fields(line);
    std::vector<std::string> parts;
    for (std::string field; std::getline(fields, field, '\t');)
      parts.push_back(field);
    if (parts.size() == 5 && parts[1] == mark) texts.push_back(parts[4]);
  }
  return texts;
}

/// The texts of the errors in the log.
inline std::vector<std::string> errorsLogged() {
  return textsLogged("E");
}

}  // namespace kelt::tests
