#pragma once
// Buffers of the agent's toolkit. Any of them may come to hold a key, so all are wiped when released.

#include <algorithm>
#include <cstddef>
#include <span>
#include <type_traits>
#include <vector>

#include "base/secret.h"

/// A block of objects of a trivial type with a length. One further zero object follows the last, uncounted, so
/// that a buffer of bytes can be read as a zero-terminated string. Only a buffer that was never given a content, or has
/// lost it (moved from, or after a failed allocate), has no such object: its data() is null.
template <typename T>
class AnObjectBuffer {
  static_assert(std::is_trivially_copyable_v<T>);

  using Store = std::vector<T, kelt::base::WipingAllocator<T>>;

 public:
  /// Empty, without memory: data() is null and length() 0.
  AnObjectBuffer() = default;
  /// A copy of `content`. Throws std::bad_alloc.
  explicit AnObjectBuffer(std::span<const T> content) : m_store(content.size() + 1) {
    std::copy(content.begin(), content.end(), m_store.begin());
  }

  /// Makes room for `count` objects, all zero; what was held is wiped. Returns false, with the buffer empty, when there
  /// is no memory for it.
  [[nodiscard]] bool allocate(std::size_t count) {
    Store().swap(m_store);  // releases, and so wipes, what was held; assigning {} would keep the block
    try {
      m_store.resize(count + 1);
    } catch (...) {
      return false;
    }
    return true;
  }

  /// Drops all but the first `count` objects, which must not be more than there are: they are wiped. Nothing is moved.
  void shorten(std::size_t count) {
    kelt::base::wipe(m_store.data() + count, (length() - count) * sizeof(T));
    m_store.resize(count + 1);
  }

  /// The first object, or the zero object of an empty buffer; null where there is neither. Valid until the buffer is
  /// changed, moved from or destroyed.
  [[nodiscard]] T* data() { return m_store.data(); }
  [[nodiscard]] const T* data() const { return m_store.data(); }
  /// Number of objects, the terminating one not counted.
  [[nodiscard]] std::size_t length() const { return m_store.empty() ? 0 : m_store.size() - 1; }
  /// The objects, the terminating one not among them; valid as data() is.
  [[nodiscard]] std::span<const T> span() const { return {m_store.data(), length()}; }

 private:
  Store m_store;
};

/// A block of bytes: what a file holds, a key, a hash.
using ABuffer = AnObjectBuffer<unsigned char>;
