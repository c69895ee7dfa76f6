#pragma once
// Ownership of one file descriptor.

#include <unistd.h>
#include <utility>

namespace kelt::base {

/// Owns a file descriptor and closes it. -1 means none. A close that fails is not reported here: whoever wrote through
/// the descriptor has called fsync before and seen the error there.
class UniqueFd {
 public:
  /// Owns none.
  UniqueFd() = default;
  /// Owns `fd` from here on; -1, which a failed open gives, is none.
  explicit UniqueFd(int fd) : m_fd(fd) {}
  /// Takes the descriptor over; `other` owns none then.
  UniqueFd(UniqueFd&& other) noexcept : m_fd(other.release()) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    if (this != &other) reset(other.release());
    return *this;
  }
  UniqueFd(const UniqueFd&) = delete;
  UniqueFd& operator=(const UniqueFd&) = delete;
  ~UniqueFd() { reset(); }

  /// The descriptor, still owned here; -1 where there is none.
  [[nodiscard]] int get() const { return m_fd; }
  [[nodiscard]] bool bValid() const { return m_fd >= 0; }
  explicit operator bool() const { return bValid(); }

  /// Gives the descriptor away; the caller closes it.
  [[nodiscard]] int release() { return std::exchange(m_fd, -1); }

  /// Closes the descriptor held, if any, and takes `fd` in its place.
  void reset(int fd = -1) {
    if (m_fd >= 0) ::close(m_fd);
    m_fd = fd;
  }

 private:
  int m_fd = -1;
};

}  // namespace kelt::base
