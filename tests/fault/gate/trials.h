#pragma once
// Runs commands on the device of this process, undisturbed and at points.

#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "fault/gate/command.h"
#include "fault/gate/console_texts.h"
#include "fault/gate/judge.h"
#include "fault/gate/point.h"
#include "support/injector/allocation_record.h"
#include "support/injector/injector.h"

namespace kelt::tests::gate {

/// What the trials need beside the suite, as paths that hold on the private device.
struct Setting {
  std::string tool;
  std::string allocator;              ///< the preloaded one; a path without blanks and colons
  std::string record;                 ///< for its counts; made anew
  std::vector<std::string> emulator;  ///< a command that runs the tool; empty where it runs by itself
  std::string port;                   ///< of the management server
  int seconds = 20;                   ///< that a run may take
};

/// What came of one point.
struct Trial {
  bool bReached = false;
  Outcome outcome;
  bool bRerun = false;
  Outcome rerun;
  Violations violations;
  /// Of the processes that met the faults: "tool"; the verb of the agent's command ("start", "stop", "load", "unload")
  /// of one that was about to become that; "helper".
  std::set<std::string> roles;
  double processor = 0;  ///< seconds that the trial took of the processor, the programs that it ran included
};

/// What follows when a call fails and nothing else happens.
struct AfterError {
  std::size_t calls = 0;                        ///< that the run makes after it
  std::map<std::string, std::string> commands;  ///< its processes that become another program, as in Outcome
  Ending next;                                  ///< of the same command, undisturbed, after that run
};

class Trials {
 public:
  Trials(Suite& suite, const ConsoleTexts& texts, Setting setting);
  Trials(const Trials&) = delete;
  Trials& operator=(const Trials&) = delete;
  ~Trials();

  /// Runs the command and its variants without faults, and adds what those leave to the states that its files may be
  /// in.
  [[nodiscard]] Undisturbed undisturbed(Command& command);

  /// What is wrong with that alone.
  [[nodiscard]] Violations judgeUndisturbed(const Command& command, const Undisturbed& undisturbed);

  /// For a point of the mode "pair". What came last is kept, until it is asked for another point.
  [[nodiscard]] const AfterError& afterError(const Point& point);

  [[nodiscard]] Trial at(const Point& point, const Undisturbed& undisturbed);

 private:
  /// The run after a killed one, and what is wrong with it.
  struct Rerun {
    Outcome outcome;
    Violations violations;
  };

  [[nodiscard]] AfterError runWith(const Point& error);
  [[nodiscard]] Trial tried(const Point& point, const Undisturbed& undisturbed);
  [[nodiscard]] Program programFor(const std::vector<std::string>& arguments) const;
  [[nodiscard]] Program countedProgram(const Command& command, const Spot* failing) const;
  [[nodiscard]] Outcome strike(const Point& point, const Command& command, Violations& exposed,
                               bool bCountAfter = false);
  [[nodiscard]] std::vector<Spot> allocationsOf(const Command& command);
  void clearRecord();
  [[nodiscard]] Rerun rerun(const Command& command, const Judge& judge, const Tree& before,
                            const std::optional<Ending>& other);
  [[nodiscard]] const Rerun& rerunAfterKill(const Point& point, const Judge& judge, const Tree& before);

  Suite& m_suite;
  const ConsoleTexts& m_texts;
  Setting m_setting;
  Injector m_injector;
  AllocationRecord* m_record;
  std::optional<std::pair<std::string, AfterError>> m_afterError;  ///< of the error of this name
  /// By command, and by how the killed run left the device but for the lines of its log: from there on a run goes one
  /// way.
  std::map<std::pair<std::size_t, Tree>, Rerun> m_reruns;
};

}  // namespace kelt::tests::gate
