#include "app/working_directory.h"

#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include "app/messages.h"
#include "base/console.h"
#include "helper/agent_directories.h"

namespace kelt::app {
namespace {

constexpr std::size_t kPathBuffer = 1024;  // the terminating zero included

}  // namespace

std::optional<std::string> currentDirectory() {
  char buffer[kPathBuffer];
  if (::getcwd(buffer, sizeof(buffer)) != nullptr) return std::string(buffer);
  // The directory may have been removed, or its path be longer than the buffer: the shell can still know it. The tool
  // is single-threaded and changes no variable.
  const char* const fromShell = std::getenv("PWD");  // NOLINT(concurrency-mt-unsafe)
  if (fromShell == nullptr) return std::nullopt;
  // No longer than what getcwd could have given.
  return std::string(fromShell, ::strnlen(fromShell, kPathBuffer - 1));
}

bool enterAgentBinDirectory() {
  const std::string path = helper::agentBinDirectory();
  if (::chdir(path.c_str()) == 0) return true;
  base::printLine(messages::directoryNotEntered(path));
  return false;
}

}  // namespace kelt::app
