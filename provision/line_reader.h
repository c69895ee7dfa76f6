#pragma once
// Lines of an input, as the prompts take them.

#include <array>
#include <functional>
#include <span>
#include <string>

namespace kelt::provision {

/// Reads lines from a source of bytes. What it holds is wiped at its end; what it has given is the caller's to wipe.
class LineReader {
 public:
  /// The most bytes that a line keeps.
  static constexpr std::size_t kMaxLength = 254;

  /// Fills the buffer it is given, as far as there is input, waiting for some; returns the number of bytes, 0 at the
  /// end or on an error.
  using Source = std::function<std::size_t(std::span<char>)>;

  explicit LineReader(Source source) : m_source(std::move(source)) {}
  LineReader(const LineReader&) = delete;
  LineReader& operator=(const LineReader&) = delete;
  ~LineReader();

  /// The next line without its end, up to its first zero byte. A line of more than kMaxLength bytes is cut there; after
  /// one, and after the end of the input, all further lines are empty. Throws std::bad_alloc, before anything is read.
  [[nodiscard]] std::string next();

 private:
  static constexpr int kEnd = -1;
  [[nodiscard]] int peek();  // the next byte, which stays the next, or kEnd

  Source m_source;
  std::array<char, 256> m_buffer{};
  std::size_t m_at = 0;
  std::size_t m_filled = 0;
  bool m_over = false;  // whether all further lines are empty
};

}  // namespace kelt::provision
