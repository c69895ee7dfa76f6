#include "base/secret.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <new>

namespace {

enum class Released { kNot, kWiped, kAsItWas };

const void* g_watched = nullptr;
std::size_t g_watchedSize = 0;
Released g_released = Released::kNot;

void watchRelease(const void* block, std::size_t size) {
  g_released = Released::kNot;
  g_watchedSize = size;
  g_watched = block;
}

void noteRelease(const void* block) {
  if (block == nullptr || block != g_watched) return;
  const auto* bytes = static_cast<const unsigned char*>(block);
  const bool bWiped = std::all_of(bytes, bytes + g_watchedSize, [](unsigned char byte) { return byte == 0; });
  g_released = bWiped ? Released::kWiped : Released::kAsItWas;
  g_watched = nullptr;
}

}  // namespace

// The only place from which a block can be seen just before it is gone.
void* operator new(std::size_t size) {
  void* block = std::malloc(size);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}
void operator delete(void* block) noexcept {
  noteRelease(block);
  std::free(block);
}
void operator delete(void* block, std::size_t) noexcept {
  ::operator delete(block);
}

namespace kelt::base {
namespace {

TEST(Wipe, OverwritesMemoryWithZeros) {
  std::array<char, 4> memory{'k', 'e', 'y', '!'};
  wipe(memory.data(), 3);
  EXPECT_EQ(memory, (std::array<char, 4>{0, 0, 0, '!'}));
}

TEST(Wipe, TakesNothingAtAll) {
  wipe(nullptr, 0);
}

TEST(WipingFree, TakesNothingAtAll) {
  wipingFree(nullptr);
}

TEST(WipingRealloc, KeepsWhatThereIsRoomFor) {
  auto* block = static_cast<char*>(wipingRealloc(nullptr, 4));
  ASSERT_NE(block, nullptr);
  std::memcpy(block, "key", 4);
  block = static_cast<char*>(wipingRealloc(block, 4000));
  ASSERT_NE(block, nullptr);
  EXPECT_STREQ(block, "key");
  block = static_cast<char*>(wipingRealloc(block, 2));
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(std::string(block, 2), "ke");
  wipingFree(block);
}

TEST(Wipe, EmptiesAStringAndItsWholeCapacity) {
  std::string text = "a password that is too long to stand in the object itself";
  text.resize(10);  // the rest is still in memory
  const char* memory = text.data();
  wipe(text);
  EXPECT_TRUE(text.empty());
  ASSERT_EQ(text.data(), memory);
  text.resize(text.capacity());
  EXPECT_EQ(text.find_first_not_of('\0'), std::string::npos);
}

TEST(Wipe, EmptiesAWideString) {
  std::wstring text = L"geheim";
  wipe(text);
  EXPECT_TRUE(text.empty());
}

TEST(WipeAtEnd, WipesWhenTheScopeIsLeftByAnException) {
  std::string text = "password";
  try {
    const WipeAtEnd<std::string> wiped(text);
    throw 1;
  } catch (int) {
  }
  EXPECT_TRUE(text.empty());
}

TEST(SecretBytes, WipesEveryBlockThatItGivesBack) {
  SecretBytes bytes(16, 'k');
  watchRelease(bytes.data(), bytes.capacity());
  bytes.resize(4096, 'k');
  EXPECT_EQ(g_released, Released::kWiped) << "the block that was too small";
  watchRelease(bytes.data(), bytes.capacity());
  bytes = {};
  bytes.shrink_to_fit();
  EXPECT_EQ(g_released, Released::kWiped) << "the last block";
}

}  // namespace
}  // namespace kelt::base
