#pragma once
// Violations that are as they have to be, each with its reason.

#include <cstddef>
#include <set>
#include <string>
#include <vector>

namespace kelt::tests::gate {

/// A violation with the circumstances that an exception may ask for.
struct Case {
  std::string kind;
  std::string command;
  std::string mode;
  std::set<std::string> roles;    ///< see Trial::roles
  std::set<std::string> refused;  ///< names of the calls that failed by the fault, or "allocation"
  std::string detail;
};

struct Exception {
  std::string name;
  std::string kind;
  std::vector<std::string> commands;  ///< any where empty, as for the next three
  std::vector<std::string> modes;
  std::vector<std::string> roles;    ///< a fault met one of these, as for the next
  std::vector<std::string> refused;  ///< one of these has failed
  std::string detail;                ///< occurs in the violation's
  std::string reason;
  bool bSometimes = false;  ///< shows in some runs only
  std::size_t matches = 0;  ///< counted by Exceptions::excuse
};

class Exceptions {
 public:
  /// Reads lines of eight fields between "|": name, kind, commands, modes, roles, refused calls, part of the detail,
  /// reason. Lists have commas; "*" allows anything. A name that ends in "?" is of what shows in some runs only. "#"
  /// begins a comment. Throws std::runtime_error with the line that is not like that.
  explicit Exceptions(const std::string& text);

  /// True, and counted, when one of them matches.
  bool excuse(const Case& violation);

  [[nodiscard]] const std::vector<Exception>& all() const { return m_exceptions; }

 private:
  std::vector<Exception> m_exceptions;
};

}  // namespace kelt::tests::gate
