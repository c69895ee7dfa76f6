#pragma once
// Lines of an input, as the prompts take them.

#include <array>
#include <functional>
#include <span>
#include <string>

namespace kelt::provision {

/// Reads lines from a source of bytes. What it holds is wiped at its end.
class LineReader {
 public:
  static constexpr std::size_t kMaxLength = 254;

  /// Fills the buffer it is given; returns the number of bytes, 0 at the end.
  using Source = std::function<std::size_t(std::span<char>)>;

  explicit LineReader(Source source) : m_source(std::move(source)) {}
  LineReader(const LineReader&) = delete;
  LineReader& operator=(const LineReader&) = delete;
  ~LineReader();

  /// The next line without its end, up to its first zero byte. A line of more than kMaxLength bytes is cut there; after
  /// one, and after the end of the input, all further lines are empty.
  [[nodiscard]] std::string next();

 private:
  static constexpr int kEnd = -1;
  [[nodiscard]] int peek();

  Source m_source;
  std::array<char, 256> m_buffer{};
  std::size_t m_at = 0;
  std::size_t m_filled = 0;
  bool m_over = false;
};

}  // namespace kelt::provision
