#pragma once
// Memory that is wiped before it is given back.

#include <cstddef>
#include <string>
#include <vector>

namespace kelt::base {

/// Overwrites memory with zeros in a way that the compiler does not drop. A null pointer with length 0 is fine.
void wipe(void* memory, std::size_t bytes);

/// Wipes a string's whole capacity and leaves it empty. Memory that the string grew out of before is not reached:
/// reserve room for a secret before it is put there.
void wipe(std::string& text);
void wipe(std::wstring& text);

/// Overwrites the stack below the caller's frame, where functions that have returned left copies in their own frames:
/// a secret that was read is in vector registers, which are saved there, by the dynamic loader for instance.
void wipeUnusedStack();

/// Companions of malloc for libraries that let their memory be managed: what they release is wiped whole. A null block
/// is fine. wipingRealloc returns null, with the block as it was, when there is no memory; what it returns holds what
/// the block held, as far as there is room. Blocks must be malloc's.
void wipingFree(void* block);
[[nodiscard]] void* wipingRealloc(void* block, std::size_t bytes);

/// Allocator whose blocks are wiped when released, growth of a container included.
template <typename T>
struct WipingAllocator {
  using value_type = T;
  WipingAllocator() = default;
  template <typename U>
  WipingAllocator(const WipingAllocator<U>&) {}  // NOLINT(google-explicit-constructor)

  /// As std::allocator does; throws std::bad_alloc.
  T* allocate(std::size_t n) { return std::allocator<T>().allocate(n); }
  /// Wipes all of the block, whatever of it was in use, and gives it back.
  void deallocate(T* block, std::size_t n) {
    wipe(block, n * sizeof(T));
    std::allocator<T>().deallocate(block, n);
  }
  friend bool operator==(const WipingAllocator&, const WipingAllocator&) { return true; }
};

/// Bytes of a secret, or of a file that may hold one. Memory that it grows out of is wiped as well.
using SecretBytes = std::vector<unsigned char, WipingAllocator<unsigned char>>;

/// Wipes the string it watches when the scope ends, however it ends.
template <typename String>
class WipeAtEnd {
 public:
  /// `text`, a std::string or std::wstring, must outlive the object.
  explicit WipeAtEnd(String& text) : m_text(text) {}
  WipeAtEnd(const WipeAtEnd&) = delete;
  WipeAtEnd& operator=(const WipeAtEnd&) = delete;
  ~WipeAtEnd() { wipe(m_text); }

 private:
  String& m_text;
};

}  // namespace kelt::base
