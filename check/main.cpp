#include <cstdlib>
#include <cstring>
#include <exception>

#include "check/run.h"

#include "base/any_memory.h"
#include "base/console.h"
#include "base/environment.h"
#include "base/signals.h"
#include "base/standard_descriptors.h"
#include "platform/logger.h"

namespace {

constexpr int kUnknown = 3;

/// Asked before the environment is shed.
bool bColoursWanted() {
  // NOLINTBEGIN(concurrency-mt-unsafe): there is one thread
  const char* none = std::getenv("NO_COLOR");
  const char* terminal = std::getenv("TERM");
  // NOLINTEND(concurrency-mt-unsafe)
  if (none != nullptr && *none != '\0') return false;
  return terminal != nullptr && *terminal != '\0' && std::strcmp(terminal, "dumb") != 0;
}

int endWithoutMemory() {
  kelt::base::print("KELTCHECK UNKNOWN - out of memory\n");
  return kUnknown;
}

}  // namespace

int main(int argc, char** argv) {
  const bool bColours = bColoursWanted();
  kelt::base::shedEnvironment();
  if (!kelt::base::openStandardDescriptors()) return kUnknown;
  kelt::base::ignoreOutputSignals();
  if (!kelt::base::bAnyMemory()) return endWithoutMemory();
  // The operations that the tool uses would say in the agent's log what they refuse.
  closeLog();
  try {
    return kelt::check::runCheck(argc, argv, bColours);
  } catch (const std::exception&) {
    return endWithoutMemory();
  }
}
