#pragma once
// The interface through which the driver acts on the installed agent.

#include <memory>
#include <optional>
#include <string>

#include "helper/unfinished_work.h"

namespace kelt::helper {

/// The word of a run that it will start the agent, for as long as the object lives.
class StartPromise {
 public:
  StartPromise() = default;
  StartPromise(const StartPromise&) = delete;
  StartPromise& operator=(const StartPromise&) = delete;
  virtual ~StartPromise() = default;
};

/// Everything a run can do to the agent. Operations print their messages themselves; wide text is as the command line
/// has it. Each may throw std::bad_alloc; what it has done by then is as after a kill, for the next run to go on from.
class CommandLineHelper {
 public:
  CommandLineHelper() = default;
  CommandLineHelper(const CommandLineHelper&) = delete;
  CommandLineHelper& operator=(const CommandLineHelper&) = delete;
  virtual ~CommandLineHelper() = default;

  /// Runs the agent's start command, then the load command of every other product. Returns false, having run nothing,
  /// when the agent's configuration file is not found or does not load. Like StopORVService, waits before that for a
  /// command of a killed run that was to start the agent again: 5 minutes at most (helper/owed_start.h).
  virtual bool StartORVService() = 0;

  /// Runs the unload command of every other product, then the agent's stop command. Returns false, having run nothing,
  /// when the agent's configuration file is not found or does not load.
  virtual bool StopORVService() = 0;

  /// Whether the agent version that a hotfix requires, the part of `version` before its last "-" (at most 33
  /// characters), is the installed one. False also, without a word, when the agent's configuration file does not load.
  virtual bool CheckVersion(std::wstring& version) = 0;

  /// Whether neither the hotfix last given to CheckVersion nor any of the comma-separated `conflictList` is installed.
  /// False also, without a word, when the agent's configuration file does not load.
  virtual bool CheckConflictList(std::wstring& conflictList) = 0;

  /// Switches the agent to managed or unmanaged mode and returns the exit status: 0 done; 1 the switch or the key
  /// import failed; 4 the service could not be started; 5 it could not be stopped, nothing changed; 30 + n provisioning
  /// failed with status n, nothing else done. `pFlag`, `logFile` and `fFlag` have no effect.
  ///
  /// With `noStart` the agent stays stopped. The managed switch looks for its files in `sourceDir`, below `currentDir`
  /// and in that itself; with `provision` they are first fetched into `sourceDir` from `server` as `user` with
  /// `password`, which is wiped. The unmanaged switch uses none of these.
  virtual int PrepareORV(bool managed, bool noStart, std::wstring sourceDir, std::wstring currentDir, bool pFlag,
                         std::wstring logFile, bool fFlag, bool provision, std::wstring server, std::wstring user,
                         std::wstring password) = 0;

  /// Imports the server's keys, and the agent's own where the registry emulation holds them, into the agent's key
  /// store. `fromUpdateDir` takes the key files from the update directory instead of the installation directory.
  /// Returns true when the server's public key was imported and the crypto mode and key size recorded; key files and
  /// registry values are then removed. Every failure before that leaves them untouched.
  ///
  /// What an earlier run left unfinished is finished first. Where that is an import from the same directory, and no
  /// other key files have come into it since, this is it, and ends as that one would have.
  virtual bool ImportKeys(bool fromUpdateDir);

  /// Kept for products that store passwords in a site list; this agent has none. Does nothing, returns true.
  virtual bool RestitueBinFilesSLPwdsToPlainTxt();
  virtual bool EncryptBinFilesSLPwds();

  /// To be called before promiseStart and StopORVService by whoever is, or may be, to start the agent afterwards: keeps
  /// what StartORVService will need, for it to be had where the system refuses it by then. Without memory nothing is
  /// kept.
  virtual void reserveStart() {}

  /// Finishes what an earlier run began and left unfinished (helper/unfinished_work.h), but for work that the caller
  /// goes on to do himself: a switch to unmanaged mode, or an import from the installation directory, as `own` says.
  /// For a stopped agent. Says nothing on the console; the log tells what was done and what could not be done.
  virtual void finishInterrupted(std::optional<Work> own);

  /// To be called before StopORVService by whoever is to start the agent afterwards, and kept until that was done: an
  /// agent that knows how has it started even where the run dies in between. Null where it does not.
  [[nodiscard]] virtual std::unique_ptr<StartPromise> promiseStart() { return nullptr; }
};

}  // namespace kelt::helper
