#pragma once
// What a run, disturbed or not, must have come to.

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "fault/gate/command.h"
#include "fault/gate/console_texts.h"

namespace kelt::tests::gate {

struct Violation {
  std::string kind;    ///< one of those that README.md names
  std::string detail;  ///< a path, a line, a status
};
using Violations = std::vector<Violation>;

/// How a run ended.
enum class End {
  kByItself,    ///< or by a signal that it did not wait out: whatever it is, the run could tidy up first
  kKilled,      ///< by SIGKILL: what is left of it is the next run's to tidy up
  kTerminated,  ///< by SIGTERM
};

/// How a run ended, and how it left the device.
struct Ending {
  int status = 0;  ///< as waitpid gives it
  Tree tree;
};

/// Knows one command.
class Judge {
 public:
  Judge(const Command& command, const Undisturbed& undisturbed, const ConsoleTexts& texts, const Secrets& secrets);

  /// Everything that is wrong after a run that left the device like this.
  [[nodiscard]] Violations afterRun(const Outcome& outcome, End end, const Tree& tree) const;

  /// Everything that is wrong after a run of the same command without faults, on a device that an earlier run left as
  /// `before`. It ends as an undisturbed one does, or as `other`: what an error has done before the kill, by the rules,
  /// another run does not undo.
  [[nodiscard]] Violations afterRerun(const Outcome& outcome, const Tree& before, const Tree& tree,
                                      const std::optional<Ending>& other) const;

 private:
  void judgeEnd(const Outcome& outcome, End end, Violations& found) const;
  void judgeTexts(const Outcome& outcome, Violations& found) const;
  void judgeSecrets(const Outcome& outcome, const Tree& tree, Violations& found) const;
  void judgeFiles(const Outcome& outcome, End end, const Tree& tree, Violations& found) const;
  void judgeAbsent(const Outcome& outcome, const Tree& tree, Violations& found) const;
  void judgeLocks(const Outcome& outcome, End end, const Tree& tree, Violations& found) const;
  void judgeAgent(const Outcome& outcome, End end, const Tree& tree, Violations& found) const;
  void judgePlugIns(const Outcome& outcome, const Tree& tree, Violations& found) const;
  [[nodiscard]] bool bTakenBack(const std::string& path, const Outcome& outcome, const Tree& tree) const;
  [[nodiscard]] bool bSecret(const Entry& entry) const;

  const Command& m_command;
  const Undisturbed& m_undisturbed;
  const ConsoleTexts& m_texts;
  const Secrets& m_secrets;
  std::map<std::string, std::vector<std::optional<Entry>>> m_whole;  // per path, every state that it may be in
};

/// Paths at which the two differ, leaving out what no two runs leave alike: the agent's log, the locks, the record of
/// the stand-in agent.
[[nodiscard]] std::vector<std::string> differences(const Tree& one, const Tree& other);

}  // namespace kelt::tests::gate
