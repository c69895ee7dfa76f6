#include <new>

#include "app/driver.h"
#include "app/exit_status.h"
#include "app/messages.h"
#include "base/any_memory.h"
#include "base/console.h"
#include "base/environment.h"
#include "base/secret.h"
#include "base/signals.h"
#include "base/standard_descriptors.h"

namespace {

int endWithoutMemory() {
  kelt::base::printErrorLine(kelt::app::messages::kOutOfMemory);
  return kelt::app::kOutOfMemory;
}

}  // namespace

int main(int argc, char** argv) {
  // First, before any library reads in it what to load or where to write, as root.
  kelt::base::shedEnvironment();
  // The start of the program looked at the arguments: what it left of a password lies where our frames will.
  kelt::base::wipeUnusedStack();
  // Before any file is opened: one that became descriptor 1 would get the console texts.
  if (!kelt::base::openStandardDescriptors()) return kelt::app::kNoStandardDescriptors;
  kelt::base::ignoreOutputSignals();
  if (!kelt::base::bAnyMemory()) return endWithoutMemory();
  try {
    return kelt::app::runTool(argc, argv);
  } catch (const std::bad_alloc&) {
    return endWithoutMemory();
  } catch (...) {
    // Caught at all so that locks and terminal states are unwound; what it is, nobody here can do anything about.
    throw;
  }
}
