#pragma once
// An agent on the private device: configuration files of products, and commands that write down that they were run.

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace kelt::tests {

/// Element names and texts of a configuration file. The texts are written as they are, so must be valid in XML.
using ConfigValues = std::vector<std::pair<std::string, std::string>>;

/// Writes /etc/orv.d/<directory>/config.xml with these elements under `Configuration`, and returns its path.
std::string putProduct(const std::string& directory, const ConfigValues& values);

/// Makes a shell script that appends its name and arguments as a line to the record of calls, and then does `andThen`
/// (shell text). Returns the path to call it by.
std::string putCommand(const std::string& name, const std::string& andThen = "");

/// The commands run so far, in order, each as its name and its arguments.
[[nodiscard]] std::vector<std::string> calls();

/// The names that readdir yields in `directory`, in its order, "." and ".." left out.
[[nodiscard]] std::vector<std::string> namesAsListed(const std::string& directory);

/// Everything below a directory: path to kind, mode and content (or the target of a link). For comparing before and
/// after. Not the agent log, which grows whatever happens.
using Tree = std::map<std::string, std::string>;
[[nodiscard]] Tree treeOf(const std::string& directory);

/// Runs `work` in a process of its own and returns its wait status; exit status 0 when `work` returns true, else 1.
[[nodiscard]] int statusOfProcess(const std::function<bool()>& work);

/// While it lives, `reaction` (which may only do what a signal handler may) is called whenever a file in `directory` is
/// read, before that read returns. One at a time.
class WhenRead {
 public:
  WhenRead(const std::string& directory, void (*reaction)());
  WhenRead(const WhenRead&) = delete;
  WhenRead& operator=(const WhenRead&) = delete;
  ~WhenRead();

 private:
  int m_directory;
};

}  // namespace kelt::tests
