#include "base/console.h"

#include <algorithm>
#include <array>
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
  // An output that does not block is the doing of whoever shares it with this process, a terminal for instance.
  if (error != EAGAIN) return false;
  pollfd waited{fd, POLLOUT, 0};
  const int ready = ::poll(&waited, 1, kPatienceMilliseconds);
  return ready > 0 || (ready < 0 && errno == EINTR);
}

void put(int fd, std::string_view text) {
  // Who prints between a failed call and the message about it must not change what that says.
  const int errnoBefore = errno;
  while (!text.empty()) {
    const ssize_t written = ::write(fd, text.data(), text.size());
    if (written > 0) {
      text.remove_prefix(static_cast<std::size_t>(written));
    } else if (written == 0 || !bWorthRetrying(fd, errno)) {
      // Nobody is told: a closed or full output must not change what the run does.
      break;
    }
  }
  errno = errnoBefore;
}

/// A line on its way out. One of usual length is one write; none takes memory, as the line may be about the lack of it.
class Line {
 public:
  explicit Line(int fd) : m_fd(fd) {}

  void add(std::string_view text) {
    while (!text.empty()) {
      // A longer line is several writes, between which text of another process may come; none of it is lost.
      if (m_used == m_bytes.size()) flush();
      const std::size_t taken = std::min(text.size(), m_bytes.size() - m_used);
      std::copy_n(text.begin(), taken, m_bytes.begin() + static_cast<std::ptrdiff_t>(m_used));
      m_used += taken;
      text.remove_prefix(taken);
    }
  }

  void add(std::wstring_view text) {
    // A single unit needs no memory but that of the string object.
    for (const wchar_t unit : text)
      add(toUtf8({&unit, 1}));
  }

  void end() {
    add("\n");
    flush();
  }

 private:
  void flush() {
    put(m_fd, {m_bytes.data(), m_used});
    m_used = 0;
  }

  int m_fd;
  std::size_t m_used = 0;
  // As much as a pipe takes in one piece (PIPE_BUF), so that lines of usual length do not mix with those of others.
  std::array<char, 4096> m_bytes{};
};

template <typename Text>
void putLine(int fd, Text text) {
  Line line(fd);
  line.add(text);
  line.end();
}

}  // namespace

void print(std::string_view text) {
  put(STDOUT_FILENO, text);
}

void printLine(std::string_view text) {
  putLine(STDOUT_FILENO, text);
}

void printLine(std::wstring_view text) {
  putLine(STDOUT_FILENO, text);
}

void printErrorLine(std::string_view text) {
  putLine(STDERR_FILENO, text);
}

void printErrorLine(std::wstring_view text) {
  putLine(STDERR_FILENO, text);
}

}  // namespace kelt::base
