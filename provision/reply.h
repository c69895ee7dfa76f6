#pragma once
// The reply of the management server, as far as it has come in.

#include <cstddef>
#include <string>
#include <string_view>

namespace kelt::provision {

/// The most of a reply that is kept, in bytes: far beyond any package of site list and keys.
inline constexpr std::size_t kMaxReply = std::size_t{32} * 1024 * 1024;

/// Collects the body of a reply in a string that outlives it. No operation throws: they are called by libcurl, which no
/// exception may cross, and a reply that there is no memory for is cut like one that is too long.
class Reply {
 public:
  /// Collects into `text`; what that holds already counts as received.
  explicit constexpr Reply(std::string& text) noexcept : m_text(text) {}

  /// Makes room for the largest reply: address space that costs memory only as far as it is filled, and saves growing
  /// by copies. Without room the text grows as it can.
  void reserve() noexcept;

  /// Appends `piece`, unless it would make the reply longer than kMaxReply bytes or there is no memory for it. The
  /// reply is then cut, and keeps none of what follows.
  void add(std::string_view piece) noexcept;

  /// Forgets everything, for another reply.
  void clear() noexcept;

  /// Whether a part of the reply was not kept.
  [[nodiscard]] bool bCut() const noexcept { return m_bCut; }

  /// What was kept.
  [[nodiscard]] const std::string& text() const noexcept { return m_text; }

 private:
  std::string& m_text;
  bool m_bCut = false;
};

}  // namespace kelt::provision
