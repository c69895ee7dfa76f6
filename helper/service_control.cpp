// Starting and stopping the agent, and loading and unloading the plug-ins of the other products with it.

#include <cerrno>
#include <new>
#include <optional>

#include "base/console.h"
#include "helper/agent_log.h"
#include "helper/agent_paths.h"
#include "helper/messages.h"
#include "helper/owed_start.h"
#include "helper/start_promise.h"
#include "helper/unix_command_line_helper.h"
#include "platform/config_directory.h"
#include "platform/refusals.h"

namespace kelt::helper {
namespace {

constexpr const wchar_t* kLoadElement = L"LoadOrvPluginCommand";

using platform::ConfigDirectory;
using platform::ConfigFile;

ConfigDirectory openConfigDirectory() {
  return ConfigDirectory(paths::kConfigDir);
}

/// What was loaded; nothing, with the reason in the log, where it was not.
std::optional<ConfigFile> logged(Result<ConfigFile> file) {
  if (file) return std::move(file).value();
  platform::logRefusal(file.error());
  return std::nullopt;
}

const char* complaintAbout(ConfigDirectory::State state) {
  switch (state) {
    case ConfigDirectory::State::kInaccessible:
      return messages::kConfigDirInaccessible;
    case ConfigDirectory::State::kWritableByOthers:
      return messages::kConfigDirWritable;
    case ConfigDirectory::State::kUnreadable:
      return messages::kConfigDirUnreadable;
    case ConfigDirectory::State::kUsable:
      break;
  }
  return nullptr;
}

/// Calls `take` with the name of each product but the agent, in the order of the directory, and what its file came to.
/// Errors: those of usable(), with nothing called, and of listed().
template <typename Take>
Status forEachPlugIn(ConfigDirectory& directory, Take take) {
  if (Status usable = directory.usable(); !usable) return usable;
  while (const auto name = directory.next()) {
    if (!ConfigDirectory::bAgent(*name)) take(*name, directory.load(*name));
  }
  return directory.listed();
}

/// Says on the console, and in the log, what is wrong with the configuration directory: it was fine when the agent's
/// own file was found in it, so it has changed since. Returns whether nothing is.
bool checkDirectory(const ConfigDirectory& directory) noexcept {
  const char* complaint = complaintAbout(directory.state());
  if (complaint == nullptr) return true;
  base::printLine(std::string_view(complaint));
  try {
    platform::logRefusal(directory.usable().error());
  } catch (const std::bad_alloc&) {
    return false;  // without a line in the log
  }
  return false;
}

/// Waits for what a run that was killed left running, where this run has not done so before its own stop.
void awaitCommandsOfDeadRun(bool bDone) {
  if (bDone) return;
  awaitCommand(Owed::kStart);
  awaitCommand(Owed::kPlugIns);
}

/// An agent that is to stay stopped is owed nothing, whatever an earlier run owed it.
void forgiveDebts() {
  settle(Owed::kStart);
  settle(Owed::kPlugIns);
}

bool bRefusedBySystem(const Error& error) {
  return error.kind == ErrorKind::kSystem;
}

/// Tells that what was kept is used.
void logReserve() {
  logProblem("What starts the agent cannot be read; it is started as it was configured before the stop.");
}

Error noMemory() {
  return {ErrorKind::kSystem, ENOMEM, "out of memory"};  // short enough to need none
}

/// Runs those of the kept commands that were not read anew.
void loadReserved(const ReservedStart& reserved) noexcept {
  for (const ReservedPlugIn& plugIn : reserved.plugIns) {
    if (!plugIn.bSettled) plugIn.load.runPatiently(nullptr);
  }
}

ReservedPlugIn* find(ReservedStart& reserved, const std::string& directory) {
  for (ReservedPlugIn& plugIn : reserved.plugIns) {
    if (plugIn.directory == directory) return &plugIn;
  }
  return nullptr;
}

}  // namespace

std::unique_ptr<StartPromise> unixCommandLineHelper::promiseStart() {
  return guardedPromise(*this);
}

void unixCommandLineHelper::reserveStart() {
  m_reserved = readStartInAdvance();
}

bool unixCommandLineHelper::StartORVService() {
  awaitCommandsOfDeadRun(m_bStartPromised);
  // Else a plug-in whose file cannot be read for once would not be loaded.
  auto justRead = m_reserved ? std::nullopt : readStartInAdvance();
  ReservedStart* const reserved = m_reserved ? &*m_reserved : justRead ? &*justRead : nullptr;
  const auto read = [&]() -> Result<PreparedCommand> {
    try {
      return readStartCommand();
    } catch (const std::bad_alloc&) {
      if (reserved == nullptr) throw;
      return noMemory();
    }
  };
  const Result<PreparedCommand> anew = read();
  if (!anew) platform::logRefusal(anew.error());
  // What was kept stands in for what the system refuses, and never for a file that is missing or not trusted by now.
  if (!anew && (reserved == nullptr || !bRefusedBySystem(anew.error()))) return false;
  if (!anew) logReserve();
  (anew ? anew.value() : reserved->start).runPatiently([] { settle(Owed::kStart); });
  // From here on the agent runs, whatever becomes of the plug-ins.
  loadPlugInsAnewOr(reserved, m_reserved.has_value());
  return true;
}

void unixCommandLineHelper::loadPlugIns() {
  awaitCommandsOfDeadRun(false);
  loadPlugInsAnewOr(m_reserved ? &*m_reserved : nullptr, true);
}

bool unixCommandLineHelper::StopORVService() {
  awaitCommandsOfDeadRun(false);
  // A run that does not start the agent again owes it nothing: a mark would have some other run's guard start it.
  using Last = void (*)();
  const Last oweStart = m_bStartPromised ? Last([] { owe(Owed::kStart); }) : nullptr;
  const Last owePlugIns = m_bStartPromised ? Last([] { owe(Owed::kPlugIns); }) : nullptr;
  const auto config = logged(openConfigDirectory().loadAgent());
  // Nothing was run yet, so the agent is as it was.
  if (!config) return false;
  const PreparedCommand stopCommand = prepared(config->firstTextOrEmpty(L"StopCommand"));
  ConfigDirectory directory = openConfigDirectory();
  // A directory that others may have changed meanwhile is no ground to stop the agent on; that counts as done.
  if (!checkDirectory(directory)) return true;
  // As far as it can be listed: what cannot be read there must not keep the agent from being stopped.
  static_cast<void>(forEachPlugIn(directory, [&](const std::string& /*name*/, Result<ConfigFile> file) {
    const auto plugIn = logged(std::move(file));
    if (!plugIn) return;
    if (const auto command = plugIn->firstText(L"UnloadOrvPluginCommand")) prepared(*command).run(owePlugIns);
  }));
  // Last, as plug-ins are unloaded from an agent that runs; and patiently, as the work must not meet a running agent.
  stopCommand.runPatiently(oweStart);
  if (!m_bStartPromised) forgiveDebts();
  return true;
}

Result<PreparedCommand> unixCommandLineHelper::readStartCommand() const {
  const auto config = openConfigDirectory().loadAgent();
  if (!config) return config.error();
  return prepared(config.value().firstTextOrEmpty(L"StartCommand"));
}

Result<ReservedStart> unixCommandLineHelper::readStart() const {
  auto start = readStartCommand();
  if (!start) return start.error();
  ReservedStart all{std::move(start).value(), {}};
  Status refused;
  ConfigDirectory directory = openConfigDirectory();
  const auto listed = forEachPlugIn(directory, [&](const std::string& name, const Result<ConfigFile>& file) {
    // A file that is missing or malformed names no command; one that the system refuses might.
    if (!file && bRefusedBySystem(file.error())) refused = file.error();
    if (!file) return;
    if (const auto command = file.value().firstText(kLoadElement)) all.plugIns.push_back({name, prepared(*command)});
  });
  // All or nothing: a start by a list that lacks a product would leave that one's plug-in unloaded.
  if (!listed) return listed.error();
  if (!refused) return refused.error();
  return all;
}

std::optional<ReservedStart> unixCommandLineHelper::readStartInAdvance() const noexcept {
  try {
    auto start = readStart();
    if (start) return std::move(start).value();
    // All else is said by whoever needs it.
    if (bRefusedBySystem(start.error())) platform::logRefusal(start.error());
  } catch (const std::bad_alloc&) {
    return std::nullopt;  // what needs memory may still have it later
  }
  return std::nullopt;
}

void unixCommandLineHelper::loadPlugInsAnewOr(ReservedStart* reserved, bool bDespiteDirectory) const noexcept {
  if (reserved != nullptr) {
    // A start that is tried again loads them again, too.
    for (ReservedPlugIn& plugIn : reserved->plugIns)
      plugIn.bSettled = false;
  }
  bool bDone = false;
  try {
    bDone = loadPlugInsAnew(reserved, bDespiteDirectory);
  } catch (const std::bad_alloc&) {
    logProblem("There is no memory to read which plug-ins to load.");
  }
  if (!bDone && reserved != nullptr) loadReserved(*reserved);
  settle(Owed::kPlugIns);
}

/// Returns false where what was kept is to be used for the rest.
bool unixCommandLineHelper::loadPlugInsAnew(ReservedStart* reserved, bool bDespiteDirectory) const {
  ConfigDirectory directory = openConfigDirectory();
  // What was kept stands in for a directory that the system refuses, never for one that others may write to by now.
  if (!checkDirectory(directory)) return !(bDespiteDirectory && directory.bRefusedBySystem());
  const auto listed = forEachPlugIn(directory, [&](const std::string& name, const Result<ConfigFile>& file) {
    loadPlugIn(file, reserved == nullptr ? nullptr : find(*reserved, name));
  });
  if (!listed) platform::logRefusal(listed.error());
  return listed.ok();
}

void unixCommandLineHelper::loadPlugIn(const Result<ConfigFile>& file, ReservedPlugIn* kept) const {
  if (!file) platform::logRefusal(file.error());
  const auto text = file ? file.value().firstText(kLoadElement) : std::nullopt;
  const auto anew = text ? std::optional(prepared(*text)) : std::nullopt;
  // From here on nothing throws: it is not run for a second time from what was kept.
  if (kept != nullptr) kept->bSettled = true;
  if (anew) return anew->runPatiently(nullptr);
  if (kept != nullptr && !file && bRefusedBySystem(file.error())) kept->load.runPatiently(nullptr);
}

}  // namespace kelt::helper
