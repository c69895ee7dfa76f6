#include "helper/unfinished_work.h"

#include <array>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "base/file_read.h"
#include "base/fresh_file.h"
#include "base/retry.h"
#include "base/utf.h"
#include "helper/agent_directories.h"
#include "helper/agent_log.h"
#include "helper/agent_paths.h"
#include "platform/afile.h"

namespace kelt::helper {
namespace {

/// Far beyond any mark.
constexpr std::size_t kMaxSize = 4096;

constexpr std::string_view kWorkTag = "work=";
constexpr std::array kNames = {std::pair{Work::kUnmanagedSwitch, std::string_view("unmanaged-switch")},
                               std::pair{Work::kKeyImport, std::string_view("key-import")},
                               std::pair{Work::kTakeBack, std::string_view("take-back")}};

std::string textOf(const BegunWork& begun) {
  std::string text(kWorkTag);
  for (const auto& [work, name] : kNames) {
    if (work == begun.work) text.append(name);
  }
  return text + "\n" + begun.plan;
}

std::optional<BegunWork> workIn(std::string_view text) {
  const std::size_t end = text.find('\n');
  if (end == std::string_view::npos || !text.starts_with(kWorkTag)) return std::nullopt;
  const std::string_view kind = text.substr(kWorkTag.size(), end - kWorkTag.size());
  for (const auto& [work, name] : kNames) {
    if (kind == name) return BegunWork{work, std::string(text.substr(end + 1))};
  }
  return std::nullopt;
}

/// Whoever could have written it could have root delete files or import keys by it.
const char* whyNoMark(const struct stat& info, uid_t owner) {
  if (!S_ISREG(info.st_mode)) return "is not a regular file";
  if (info.st_uid != owner) return "belongs to somebody else";
  if (info.st_nlink != 1) return "has other names";
  if ((info.st_mode & (S_IWGRP | S_IWOTH)) != 0) return "can be written by others";
  return nullptr;
}

Result<BegunWork> readMark(const base::Place& place, const std::string& path, uid_t owner) {
  const int directory = place.directory.get();
  const char* const name = place.name.c_str();
  const auto refused = [&](const char* why) { return Error{ErrorKind::kRefused, 0, path + " " + why}; };
  struct stat info {};
  // Looked at before it is opened: merely opening a device can have an effect.
  if (::fstatat(directory, name, &info, AT_SYMLINK_NOFOLLOW) != 0) return base::systemError("examine " + path);
  if (const char* why = whyNoMark(info, owner)) return refused(why);
  constexpr int kFlags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
  const base::UniqueFd file(base::retryInterrupted([&] { return ::openat(directory, name, kFlags); }));
  if (!file || ::fstat(file.get(), &info) != 0) return base::systemError("open " + path);
  if (const char* why = whyNoMark(info, owner)) return refused(why);
  // The file that is read is the one that was judged, whatever has its name by now.
  const auto content = base::readAll(file.get(), path, kMaxSize);
  if (!content) return content.error();
  auto found = workIn({reinterpret_cast<const char*>(content.value().data()), content.value().size()});
  if (!found) return refused("is no mark of unfinished work");
  return std::move(*found);
}

}  // namespace

Result<BegunWork> inspectMark(const std::string& data, uid_t owner) {
  const std::string path = base::toUtf8(APath(base::toWide(data), base::toWide(paths::kUnfinishedWork)).str());
  const auto place = base::openPlace(path);
  if (!place) return place.error();
  return readMark(place.value(), path, owner);
}

WorkMark::WorkMark() : m_path(inAgentDataDirectory(paths::kUnfinishedWork)) {
  const Status status = find();
  if (status || status.error().kind == ErrorKind::kNotFound) return;
  if (status.error().kind == ErrorKind::kSystem) {
    // It stays for the next run, which may be able to read it.
    logProblem("Whether an earlier run left work unfinished is not known: " + status.error().message);
  } else {
    refuse(status.error().message);
  }
}

WorkMark::~WorkMark() {
  if (m_bOwn) end();
}

Status WorkMark::find() {
  Status opened = open();
  // A directory that the system refuses for once must not pass for one that holds no mark.
  if (!opened && opened.error().kind == ErrorKind::kSystem) opened = open();
  return opened ? read() : opened;
}

Status WorkMark::open() {
  auto place = base::openPlace(m_path);
  if (!place) return place.error();
  m_place = std::move(place).value();
  return {};
}

Status WorkMark::read() {
  auto found = readMark(m_place, m_path, ::geteuid());
  if (!found) return found.error();
  m_found = std::move(found).value();
  // A killed run may have left it in memory only.
  static_cast<void>(base::syncDirectory(m_place.directory.get(), m_path));
  return {};
}

void WorkMark::refuse(const std::string& why) const {
  // Else every run to come would find it, and say so, again.
  const bool bRemoved = ::unlinkat(m_place.directory.get(), m_place.name.c_str(), 0) == 0;
  logProblem((bRemoved ? "Removed, being no mark of unfinished work: " : "No mark of unfinished work: ") + why);
}

bool WorkMark::adopt(Work work) noexcept {
  if (!m_found || m_found->work != work) return false;
  m_bOwn = true;
  return true;
}

Status WorkMark::write(const std::string& text) {
  // None that could not be removed again.
  const Status opened = m_place.directory ? Status() : open();
  return opened ? base::makeFreshFile(m_path, text) : opened;
}

void WorkMark::begin(const BegunWork& work) {
  m_bOwn = true;  // also where it fails: the mark is there all the same when only its last sync failed
  const std::string text = textOf(work);
  Status done = write(text);
  // Once more: one call that is refused must not leave the work without its mark.
  if (!done) done = write(text);
  if (!done) logProblem("No mark of unfinished work could be made: " + done.error().message);
}

void WorkMark::end() noexcept {
  m_bOwn = false;
  m_found.reset();
  const int directory = m_place.directory.get();
  // Synced, as a mark that comes back with a power cut would have work finished that was done long ago.
  if (!base::askTwice([&] { return ::unlinkat(directory, m_place.name.c_str(), 0) == 0; })) return;
  static_cast<void>(base::retryInterrupted([&] { return ::fsync(directory); }));
}

}  // namespace kelt::helper
