#include "fault/gate/judge.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <fcntl.h>
#include <sys/wait.h>

#include "base/unique_fd.h"

namespace kelt::tests::gate {
namespace {

constexpr std::string_view kLockDirectories = "/run/orv";  // and what its name begins with
constexpr std::string_view kLockName = "-sync_mutex";

bool bLockPlace(const std::string& path) {
  return path.starts_with(kLockDirectories);
}

/// What no two runs leave alike.
bool bIncomparable(const std::string& path) {
  return path == kLog || bLockPlace(path) || path.starts_with(kAgentDirectory);
}

const Entry* entryAt(const Tree& tree, const std::string& path) {
  const auto found = tree.find(path);
  return found == tree.end() ? nullptr : &found->second;
}

std::optional<Entry> stateIn(const Tree& tree, const std::string& path) {
  const Entry* const entry = entryAt(tree, path);
  return entry == nullptr ? std::nullopt : std::optional(*entry);
}

bool bHolds(const std::vector<std::optional<Entry>>& states, const std::optional<Entry>& state) {
  return std::find(states.begin(), states.end(), state) != states.end();
}

bool bEndedByItself(const Outcome& outcome) {
  return WIFEXITED(outcome.status);
}

std::string describe(const Entry* entry) {
  if (entry == nullptr) return "absent";
  std::array<char, 8> mode{};
  std::snprintf(mode.data(), mode.size(), "%04o", entry->mode);
  return std::string(1, entry->kind) + " " + mode.data() + ", " + std::to_string(entry->content.size()) + " bytes";
}

/// Whether some process holds a lock on the file.
bool bLocked(const std::string& path) {
  const base::UniqueFd fd(::open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW));
  struct flock whole {};
  whole.l_type = F_WRLCK;
  return fd && ::fcntl(fd.get(), F_OFD_GETLK, &whole) == 0 && whole.l_type != F_UNLCK;
}

/// The texts by which a start or a stop says that it left the plug-ins alone.
bool bDirectoryRefused(const std::string& output) {
  constexpr std::array kTexts = {"Failed to Access Config Dir.", "Security Issue, Config Dir is writable by non root.",
                                 "Opendir failed for config directory."};
  return std::any_of(kTexts.begin(), kTexts.end(),
                     [&](const char* text) { return output.find(text) != std::string::npos; });
}

std::set<std::string> allPaths(const Command& command, const Undisturbed& undisturbed) {
  std::set<std::string> paths;
  for (const Tree* tree : {&command.first, &undisturbed.after, &undisturbed.afterAgain}) {
    for (const auto& [path, entry] : *tree)
      paths.insert(path);
  }
  for (const auto& [path, entries] : command.between)
    paths.insert(path);
  return paths;
}

}  // namespace

Judge::Judge(const Command& command, const Undisturbed& undisturbed, const ConsoleTexts& texts, const Secrets& secrets)
    : m_command(command), m_undisturbed(undisturbed), m_texts(texts), m_secrets(secrets) {
  for (const std::string& path : allPaths(command, undisturbed)) {
    auto& states = m_whole[path];
    for (const Tree* tree : {&command.first, &undisturbed.after, &undisturbed.afterAgain})
      states.push_back(stateIn(*tree, path));
    if (command.mayBeAbsent.count(path) != 0) states.emplace_back();
    if (const auto more = command.between.find(path); more != command.between.end())
      states.insert(states.end(), more->second.begin(), more->second.end());
  }
}

Violations Judge::afterRun(const Outcome& outcome, End end, const Tree& tree) const {
  Violations found;
  judgeEnd(outcome, end, found);
  if (end != End::kKilled) judgeTexts(outcome, found);
  judgeSecrets(outcome, tree, found);
  judgeFiles(outcome, end, tree, found);
  judgeAbsent(outcome, tree, found);
  judgeLocks(outcome, end, tree, found);
  judgeAgent(outcome, end, tree, found);
  return found;
}

Violations Judge::afterRerun(const Outcome& outcome, const Tree& before, const Tree& tree,
                             const std::optional<Ending>& other) const {
  Violations found;
  judgeEnd(outcome, End::kByItself, found);
  judgeTexts(outcome, found);
  judgeLocks(outcome, End::kByItself, tree, found);
  judgeAgent(outcome, End::kByItself, tree, found);

  const auto endsLike = [&](int status, const Tree& after) {
    return outcome.status == status && differences(tree, after).empty();
  };
  if (endsLike(m_undisturbed.status, m_undisturbed.after)) return found;
  if (other && endsLike(other->status, other->tree)) return found;
  // A run that was cut off once all was done has left nothing to do: the next one may say so.
  const std::vector<std::string> undone = differences(before, m_undisturbed.after);
  const bool bDone =
      std::all_of(undone.begin(), undone.end(), [&](const std::string& path) { return m_whole.count(path) == 0; });
  if (bDone && endsLike(m_undisturbed.statusAgain, m_undisturbed.afterAgain)) return found;

  if (outcome.status != m_undisturbed.status)
    found.push_back({"rerun-status", "status " + std::to_string(WEXITSTATUS(outcome.status))});
  for (const std::string& path : differences(tree, m_undisturbed.after)) {
    const Entry* const entry = entryAt(tree, path);
    const bool bLeft = entry != nullptr && m_whole.count(path) == 0;
    const std::string kind = !bLeft ? "rerun-files" : bSecret(*entry) ? "left-over-secret" : "left-over";
    found.push_back({kind, path + ": " + describe(entry)});
  }
  return found;
}

void Judge::judgeEnd(const Outcome& outcome, End end, Violations& found) const {
  if (outcome.bHung) found.push_back({"hang", "killed when its time was over"});
  if (outcome.bLeft) found.push_back({"process-left", "a process of the run did not end"});
  for (const int signal : outcome.crashes)
    found.push_back({"crash", "a process of it ended by signal " + std::to_string(signal)});
  if (bEndedByItself(outcome)) {
    const int status = WEXITSTATUS(outcome.status);
    if (!m_texts.bStatus(status)) found.push_back({"unknown-status", std::to_string(status)});
  } else if (!outcome.bHung) {
    const int signal = WTERMSIG(outcome.status);
    const bool bAsked = (end == End::kKilled && signal == SIGKILL) || (end == End::kTerminated && signal == SIGTERM);
    if (!bAsked) found.push_back({"crash", "signal " + std::to_string(signal)});
  }
}

void Judge::judgeTexts(const Outcome& outcome, Violations& found) const {
  for (const std::string* output : {&outcome.output, &outcome.errors}) {
    const std::string line = m_texts.firstUnknownLine(*output);
    if (!line.empty()) found.push_back({"unknown-text", line});
  }
}

bool Judge::bSecret(const Entry& entry) const {
  return entry.kind == 'f' && m_secrets.bIn(entry.content);
}

void Judge::judgeSecrets(const Outcome& outcome, const Tree& tree, Violations& found) const {
  if (m_secrets.bIn(outcome.output) || m_secrets.bIn(outcome.errors)) found.push_back({"secret-shown", "console"});
  const Entry* const log = entryAt(tree, kLog);
  if (log != nullptr && bSecret(*log)) found.push_back({"secret-shown", kLog});
  for (const auto& [path, entry] : tree) {
    const Entry* const first = entryAt(m_command.first, path);
    if (first != nullptr && *first == entry) continue;
    if (entry.kind == 'f' && m_secrets.bExposedAt(path)) found.push_back({"exposed-secret", path});
  }
}

void Judge::judgeFiles(const Outcome& /*outcome*/, End end, const Tree& tree, Violations& found) const {
  for (const auto& [path, entry] : tree) {
    if (bIncomparable(path)) continue;
    const auto known = m_whole.find(path);
    if (known == m_whole.end()) {
      const std::string kind = bSecret(entry) ? "left-over-secret" : "left-over";
      if (end != End::kKilled) found.push_back({kind, path + ": " + describe(&entry)});
    } else if (!bHolds(known->second, entry)) {
      found.push_back({"torn-file", path + ": " + describe(&entry)});
    }
  }
}

/// A switch that fails takes its copies back, and by its rules that means the source of the site list, once that is
/// installed.
bool Judge::bTakenBack(const std::string& path, const Outcome& outcome, const Tree& tree) const {
  const std::string installed = "/opt/Quorvane/orv/scratch/etc/SiteList.xml";
  const bool bFailed = !bEndedByItself(outcome) || WEXITSTATUS(outcome.status) != 0;
  return bFailed && !m_command.source.empty() && path == m_command.source + "/SiteList.xml" &&
         stateIn(tree, installed) == stateIn(m_undisturbed.after, installed);
}

void Judge::judgeAbsent(const Outcome& outcome, const Tree& tree, Violations& found) const {
  for (const auto& [path, states] : m_whole) {
    if (tree.count(path) != 0 || bIncomparable(path)) continue;
    if (bHolds(states, std::nullopt) || bTakenBack(path, outcome, tree)) continue;
    const bool bSource = !m_command.source.empty() && path.starts_with(m_command.source);
    found.push_back({bSource ? "lost-source" : "lost-file", path});
  }
}

void Judge::judgeLocks(const Outcome& outcome, End end, const Tree& tree, Violations& found) const {
  for (const auto& [path, entry] : tree) {
    if (!bLockPlace(path) || entry.kind != 'f') continue;
    if (bLocked(path)) found.push_back({"lock-held", path});
    if (end == End::kKilled) continue;
    // Where a call of the clearing up was refused, the lock's own file stays: the next run takes it.
    const bool bLock = path.ends_with(kLockName);
    if (!bLock) found.push_back({"left-over", path});
    if (bLock && bEndedByItself(outcome) && outcome.refused.empty()) found.push_back({"lock-file-left", path});
  }
}

void Judge::judgeAgent(const Outcome& outcome, End end, const Tree& tree, Violations& found) const {
  const bool bRuns = tree.count(kAgentRuns) != 0;
  const bool bDone = bEndedByItself(outcome) && WEXITSTATUS(outcome.status) == 0;
  switch (m_command.agent) {
    case Agent::kRunsOn:
      if (!bRuns) {
        found.push_back({end == End::kKilled ? "agent-stopped-after-kill" : "agent-stopped", ""});
        return;
      }
      return judgePlugIns(outcome, tree, found);
    case Agent::kIsStarted:
      if (!bDone) return;
      if (!bRuns) found.push_back({"agent-stopped", "though the status is 0"});
      return judgePlugIns(outcome, tree, found);
    case Agent::kIsStopped:
      if (bDone && bRuns && !bDirectoryRefused(outcome.output)) found.push_back({"agent-left-running", ""});
      return;
    case Agent::kUntouched:
      if (!bRuns || tree.count(kAgentCalls) != 0) found.push_back({"agent-touched", ""});
  }
}

void Judge::judgePlugIns(const Outcome& outcome, const Tree& tree, Violations& found) const {
  if (bDirectoryRefused(outcome.output)) return;
  for (const auto& [path, entry] : m_undisturbed.after) {
    const bool bPlugIn = path.starts_with(std::string(kAgentDirectory) + "/plugin-");
    if (bPlugIn && tree.count(path) == 0) found.push_back({"plug-in-not-loaded", path});
  }
}

std::vector<std::string> differences(const Tree& one, const Tree& other) {
  std::vector<std::string> paths;
  for (const auto& [path, entry] : one) {
    if (bIncomparable(path)) continue;
    const Entry* const there = entryAt(other, path);
    if (there == nullptr || !(*there == entry)) paths.push_back(path);
  }
  for (const auto& [path, entry] : other) {
    if (!bIncomparable(path) && one.count(path) == 0) paths.push_back(path);
  }
  return paths;
}

}  // namespace kelt::tests::gate
