#pragma once
// A command of the agent, ready to be run.

#include <string>
#include <vector>

namespace kelt::helper {

/// A command line cut into words. All memory that running it takes is in here, so that it can be made long before and
/// be run where there is none left.
class PreparedCommand {
 public:
  /// Takes the program and its arguments, in UTF-8. Without any word, running it starts a child that does nothing.
  /// Throws std::bad_alloc.
  explicit PreparedCommand(std::vector<std::string> words);
  PreparedCommand(PreparedCommand&&) noexcept = default;
  PreparedCommand& operator=(PreparedCommand&&) noexcept = default;
  PreparedCommand(const PreparedCommand&) = delete;
  PreparedCommand& operator=(const PreparedCommand&) = delete;
  ~PreparedCommand() = default;

  /// Starts it as a child, without a shell, found through PATH, and waits until it ends. Signals, environment and
  /// LD_LIBRARY_PATH of the child are as unixCommandLineHelper::ExecCmd tells. In the child, `last` is called just
  /// before it becomes the program; it must be async-signal-safe, and may be null. What becomes of the child makes no
  /// difference. Takes no memory.
  void run(void (*last)()) const noexcept;

  /// The same for what must be run: a process that the system refuses is asked for again and again, for some seconds.
  /// The log tells that, and where it was in vain; running it still takes no memory, as lines that there is none for
  /// are left out.
  void runPatiently(void (*last)()) const noexcept;

 private:
  std::vector<std::string> m_words;
  std::vector<char*> m_arguments;  // of execvp, in m_words
};

}  // namespace kelt::helper
