#include "base/console.h"

#include <cerrno>
#include <poll.h>
#include <string>
#include <unistd.h>

#include "base/utf.h"

namespace kelt::base {
namespace {

/// How long an output that takes nothing (a full non-blocking pipe nobody reads) is waited for.
constexpr int kPatienceMilliseconds = 5000;

/// Whether writing can go on after a write that failed with `error`.
bool bWorthRetrying(int fd, int error) {
  if (error == EINTR) return true;
  if (error != EAGAIN) return false;
  pollfd waited{fd, POLLOUT, 0};
  const int ready = ::poll(&waited, 1, kPatienceMilliseconds);
  return ready > 0 || (ready < 0 && errno == EINTR);
}

void put(int fd, std::string_view text) {
  const int errnoBefore = errno;
  while (!text.empty()) {
    const ssize_t written = ::write(fd, text.data(), text.size());
    if (written > 0) {
      text.remove_prefix(static_cast<std::size_t>(written));
    } else if (written == 0 || !bWorthRetrying(fd, errno)) {
      break;
    }
  }
  errno = errnoBefore;
}

}  // namespace

void print(std::string_view text) {
  put(STDOUT_FILENO, text);
}

void printLine(std::string_view text) {
  print(std::string(text) + '\n');
}

void printLine(std::wstring_view text) {
  print(toUtf8(text) + '\n');
}

void printErrorLine(std::wstring_view text) {
  put(STDERR_FILENO, toUtf8(text) + '\n');
}

}  // namespace kelt::base
