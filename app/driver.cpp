#include "app/driver.h"

#include <stdexcept>

#include "app/command_line_data.h"
#include "app/console_log.h"
#include "app/dispatch.h"
#include "app/exit_status.h"
#include "app/instance_lock.h"
#include "app/messages.h"
#include "app/parser.h"
#include "app/working_directory.h"
#include "base/console.h"
#include "helper/agent_log.h"
#include "helper/unix_command_line_helper.h"
#include "platform/crypto.h"

namespace kelt::app {
namespace {

namespace crypto = quorvane_com::QV::crypto;

/// The mode that the agent has recorded. Where there is none the run goes on in non-FIPS mode and says so, as most
/// options touch no key.
crypto::Mode agentCryptoMode(const crypto::KeyConf& keyConf) {
  crypto::Mode mode = crypto::Mode::kNonFips;
  if (keyConf.getCryptoMode(mode)) return mode;
  helper::logEvent(messages::kCryptoModeUnknown);
  base::printLine(messages::kCryptoModeUnknown);
  return crypto::Mode::kNonFips;
}

/// Null when it cannot be made, whatever the reason. The crypto library keeps it to the end of the process.
crypto::CryptShimLogger* makeCryptoLogger() {
  try {
    return new crypto::CryptShimLogger(log_single_funce, log_single_funci, nullptr, nullptr);
  } catch (...) {
    return nullptr;
  }
}

/// Returns false where there is no logger for it; the library is not configured then.
bool configureCrypto(const crypto::KeyConf& keyConf) {
  const crypto::Mode mode = agentCryptoMode(keyConf);
  crypto::CryptShimLogger* const logger = makeCryptoLogger();
  if (logger == nullptr) return false;
  // A relative name: the agent's binary directory was entered before. Nothing of the library is loaded yet, as most
  // runs need nothing of it.
  crypto::CryptShim::configure(mode, crypto::Role::kDefault, logger, L"keltconfig.sig");
  return true;
}

/// ParseCommandLineArg, for which an exception is a command line that is not understood.
bool parse(char** args, CommandLineData& data) {
  try {
    return ParseCommandLineArg(args, data);
  } catch (...) {
    return false;
  }
}

/// The one agent of the process. It is never destroyed; the pointer keeps it reachable.
helper::CommandLineHelper& agent() {
  static helper::CommandLineHelper* const theAgent = new helper::unixCommandLineHelper();
  return *theAgent;
}

/// The steps that every run takes under the lock, even one that only shows the help: another run may be changing what
/// they read.
int runLocked(char** args) {
  // Asked for before it is left: the directory of -d is looked for there, too.
  const std::optional<std::string> startedIn = currentDirectory();
  if (!startedIn) {
    base::printLine(messages::kNoCurrentDirectory);
    return kNoWorkingDirectory;
  }
  const std::wstring currentDir = utf8_to_unicode(*startedIn);
  // Before anything is configured or run: relative names of commands and files are meant from the agent's directory.
  if (!enterAgentBinDirectory()) return kNoWorkingDirectory;

  CommandLineData data;
  const crypto::KeyConf keyConf;
  if (!configureCrypto(keyConf)) return kNoCryptoLogger;
  if (!parse(args, data)) return kCommandLineRefused;
  return runOptions(data, currentDir, agent());
}

}  // namespace

int runTool(int argc, char** argv) {
  try {
    const lock_raii lock;
    // A program can be started with no argument at all, not even its name; there is nothing to step over then.
    return runLocked(argc > 0 ? argv + 1 : argv);
  } catch (const std::runtime_error&) {
    // Whatever its cause: the lock's is the only one that is thrown on purpose.
    helper::logEvent("Unable to acquire interprocess lock for keltconfig ");
    return kNotLocked;
  }
}

}  // namespace kelt::app
