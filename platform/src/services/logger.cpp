#include "platform/logger.h"

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include "device_paths.h"
#include "services/agent_directories.h"

#include "base/file_lock.h"
#include "base/retry.h"
#include "base/unique_fd.h"
#include "base/utf.h"

namespace {

namespace paths = kelt::platform::paths;
using kelt::base::FileLock;
using kelt::base::retryInterrupted;
using kelt::base::UniqueFd;

/// In bytes. A longer log takes the place of the one put aside before, so that the two stay about twice this at most.
constexpr off_t kRotateBeyond = off_t{1024} * 1024;
/// How often a file that is just being rotated is opened anew, and the pause between.
constexpr int kAttempts = 20;
constexpr long kPauseNanoseconds = 1'000'000;

/// Units that would end a line, move a terminal's cursor or are no text at all.
bool bUnprintable(std::uint32_t unit) {
  const bool bControl = unit < 0x20 || (unit >= 0x7F && unit < 0xA0);
  return bControl || (unit >= 0xD800 && unit <= 0xDFFF) || unit > 0x10FFFF;
}

std::string escapedUnit(std::uint32_t unit) {
  if (unit == '\n') return "\\n";
  if (unit == '\r') return "\\r";
  if (unit == '\t') return "\\t";
  std::array<char, 16> buffer{};
  static_cast<void>(std::snprintf(buffer.data(), buffer.size(), "\\u%04x", unit));
  return buffer.data();
}

std::string escaped(const wchar_t* text) {
  std::string out;
  if (text == nullptr) return out;
  // A path, or a text of the server's, can hold a line end, and would forge a line of the log by it.
  for (const wchar_t unit : std::wstring_view(text)) {
    const std::uint32_t value = std::char_traits<wchar_t>::to_int_type(unit);
    out += bUnprintable(value) ? escapedUnit(value) : kelt::base::toUtf8({&unit, 1});
  }
  return out;
}

std::string utcNow() {
  const time_t now = ::time(nullptr);
  struct tm utc {};
  if (::gmtime_r(&now, &utc) == nullptr) return "-";
  std::array<char, 32> buffer{};
  return {buffer.data(), ::strftime(buffer.data(), buffer.size(), "%Y-%m-%dT%H:%M:%SZ", &utc)};
}

std::string lineOf(char mark, const wchar_t* source, const wchar_t* message) {
  std::string line = utcNow();
  line.append("\t").append(1, mark).append("\t").append(std::to_string(::getpid()));
  line.append("\t").append(escaped(source)).append("\t").append(escaped(message)).append("\n");
  return line;
}

std::string logPath() {
  const std::string data = kelt::base::toUtf8(kelt::platform::frameworkDataDirectory());
  const std::string directory = data + "/" + paths::kLogDirName;
  // Whether it was there, was made or cannot be made shows when the log is opened.
  ::mkdir(directory.c_str(), 0700);
  return directory + "/" + paths::kLogFileName;
}

UniqueFd openLog(const std::string& path) {
  // For reading as well, which a shared lock takes. No link: it could let root write anywhere.
  constexpr int kFlags = O_RDWR | O_APPEND | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY;
  return UniqueFd(retryInterrupted([&] { return ::open(path.c_str(), kFlags, 0600); }));
}

/// Moves a log that has grown too long out of the way. Needs the log to itself: who writes holds a shared lock, so no
/// line goes to a file that a second rotation then removes, and of two that want to rotate at most one does.
bool rotate(int fd, const std::string& path) {
  return kelt::base::tryFileLock(fd, FileLock::kExclusive) && ::rename(path.c_str(), (path + ".1").c_str()) == 0;
}

/// What an opened log is good for.
enum class LogState { kReady, kMoved, kUnusable };

LogState prepare(int fd, const std::string& path) {
  struct stat info {};
  if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) return LogState::kUnusable;
  // The name is looked at under the lock: without it, the file could be put aside right after the look.
  if (!kelt::base::tryFileLock(fd, FileLock::kShared) || !kelt::base::bStillNamed(path, info)) return LogState::kMoved;
  return info.st_size > kRotateBeyond && rotate(fd, path) ? LogState::kMoved : LogState::kReady;
}

/// In one call, so that lines of several processes do not mix.
/// A line that the disk has no room for is lost: no run fails for its log.
void writeTo(int fd, std::string_view line) {
  static_cast<void>(retryInterrupted([&] { return ::write(fd, line.data(), line.size()); }));
}

void append(const std::string& path, std::string_view line) {
  for (int attempt = 1; attempt <= kAttempts; ++attempt) {
    const UniqueFd fd = openLog(path);
    if (!fd) return;
    const LogState state = prepare(fd.get(), path);
    if (state == LogState::kUnusable) return;
    // At last into whatever is open: a line in the file that was put aside is better than none.
    if (state == LogState::kReady || attempt == kAttempts) return writeTo(fd.get(), line);
    // The second look comes at once: mostly the rotation is over by then.
    const timespec pause{0, kPauseNanoseconds};
    if (attempt > 1) ::nanosleep(&pause, nullptr);
  }
}

/// Set for good by a process that only looks, and must leave no trace.
bool bClosed = false;

void writeLine(char mark, const wchar_t* source, const wchar_t* message) noexcept {
  if (bClosed) return;
  // Who logs between a failed call and the message about it must not change what that says.
  const int errnoBefore = errno;
  try {
    append(logPath(), lineOf(mark, source, message));
  } catch (const std::exception&) {
    // No memory for a line: the run goes on without it.
  }
  errno = errnoBefore;
}

}  // namespace

void logInfo(const wchar_t* source, const wchar_t* message) {
  writeLine('I', source, message);
}

void logError(const wchar_t* source, const wchar_t* message) {
  writeLine('E', source, message);
}

void closeLog() {
  bClosed = true;
}
