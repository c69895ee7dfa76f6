#pragma once
// Buffers of the agent's toolkit. Any of them may come to hold a key, so all are wiped when released.

#include <algorithm>
#include <cstddef>
#include <span>
#include <type_traits>
#include <vector>

#include "base/secret.h"

/// A block of objects of a trivial type with a length. One further zero object stands behind the last, uncounted, so
/// that a buffer of bytes can be read as a zero-terminated string.
template <typename T>
class AnObjectBuffer {
  static_assert(std::is_trivially_copyable_v<T>);

 public:
  AnObjectBuffer() = default;
  explicit AnObjectBuffer(std::span<const T> content) : m_store(content.size() + 1) {
    std::copy(content.begin(), content.end(), m_store.begin());
  }

  /// Makes room for `count` objects, all zero; what was held is wiped. Returns false, with the buffer empty, when there
  /// is no memory for it.
  [[nodiscard]] bool allocate(std::size_t count) {
    m_store.clear();
    try {
      m_store.resize(count + 1);
    } catch (...) {
      m_store = {};
      return false;
    }
    return true;
  }

  /// Drops all but the first `count` objects, which must not be more than there are. Nothing is moved.
  void shorten(std::size_t count) {
    m_store.resize(count + 1);
    m_store[count] = T{};
  }

  [[nodiscard]] T* data() { return m_store.data(); }
  [[nodiscard]] const T* data() const { return m_store.data(); }
  /// Number of objects, the terminating one not counted.
  [[nodiscard]] std::size_t length() const { return m_store.empty() ? 0 : m_store.size() - 1; }
  [[nodiscard]] std::span<const T> span() const { return {m_store.data(), length()}; }

 private:
  std::vector<T, kelt::base::WipingAllocator<T>> m_store;
};

using ABuffer = AnObjectBuffer<unsigned char>;
