// What held a password holds nothing any more once it is given back.

#include "provision/wiping_memory.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <gtest/gtest.h>
#include <malloc.h>
#include <new>
#include <string>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "curl_probe.h"

#include "base/unique_fd.h"
#include "provision/line_reader.h"

// The address sanitizer would end the program at a request for more memory than there is, which is to be refused here.
extern "C" [[gnu::visibility("default")]] const char* __asan_default_options() {
  return "allocator_may_return_null=1";
}

namespace kelt::provision {
namespace {

using tests::curlProbe;

constexpr const char* kSecret = "canary";

TEST(Wiping, LeavesNothingOfTheInputInALineReader) {
  alignas(LineReader) std::byte place[sizeof(LineReader)];
  auto* const reader = new (&place[0]) LineReader([](std::span<char> buffer) {
    std::memcpy(buffer.data(), kSecret, 6);
    return std::size_t{6};
  });
  EXPECT_TRUE(reader->next().starts_with(kSecret));
  reader->~LineReader();
  const auto* const first = reinterpret_cast<const char*>(&place[0]);
  EXPECT_EQ(std::search(first, first + sizeof place, kSecret, kSecret + 6), first + sizeof place);
}

/// What stands in memory that was given back. The system reads it: no sanitizer objects, and what it reads goes nowhere
/// that is searched.
std::string contentOf(const void* block, std::size_t size) {
  const base::UniqueFd file(::memfd_create("block", MFD_CLOEXEC));
  EXPECT_EQ(::syscall(SYS_write, file.get(), block, size), static_cast<long>(size));
  std::string content(size, '\0');
  EXPECT_EQ(::pread(file.get(), content.data(), size, 0), static_cast<ssize_t>(size));
  return content;
}

class CurlMemory : public ::testing::Test {
 protected:
  void SetUp() override {
    curlProbe() = {};
    ASSERT_TRUE(startCurlOnWipingMemory());
    ASSERT_NE(curlProbe().memory.free, nullptr);
  }
  void TearDown() override { curl_global_cleanup(); }

  /// A block full of secrets; larger than what the memory manager keeps at hand for the next request of its size.
  static constexpr std::size_t kSize = 4000;
  static void* secrets() {
    auto* const block = static_cast<char*>(curlProbe().memory.malloc(kSize));
    for (std::size_t at = 0; at + 6 <= kSize; at += 6)
      std::memcpy(block + at, kSecret, 6);
    return block;
  }
};

TEST_F(CurlMemory, IsWipedWhenItIsFreed) {
  void* const block = secrets();
  curlProbe().memory.free(block);
  EXPECT_EQ(contentOf(block, kSize).find(kSecret), std::string::npos);
  curlProbe().memory.free(nullptr);
}

TEST_F(CurlMemory, IsWipedWhereItIsLeftForALargerBlock) {
  void* const block = secrets();
  auto* const larger = static_cast<char*>(curlProbe().memory.realloc(block, 3 * kSize));
  ASSERT_NE(larger, nullptr);
  ASSERT_NE(larger, block);
  EXPECT_EQ(contentOf(block, kSize).find(kSecret), std::string::npos);
  EXPECT_EQ(std::string(larger, 12), "canarycanary");
  EXPECT_EQ(std::string(larger + 3990, 6), kSecret) << "all of it moved";
  curlProbe().memory.free(larger);
}

TEST_F(CurlMemory, IsWipedWhereItIsLeftForASmallerBlock) {
  void* const block = secrets();
  auto* const smaller = static_cast<char*>(curlProbe().memory.realloc(block, 1200));
  ASSERT_NE(smaller, nullptr);
  EXPECT_EQ(contentOf(block, kSize).find(kSecret), std::string::npos);
  EXPECT_EQ(std::string(smaller + 1194, 6), kSecret);
  curlProbe().memory.free(smaller);
}

TEST_F(CurlMemory, IsMadeWhereThereWasNoneAndStaysWhereThereIsNoMore) {
  void* const block = curlProbe().memory.realloc(nullptr, 10);
  ASSERT_NE(block, nullptr);
  std::memcpy(block, kSecret, 7);
  const volatile std::size_t tooMuch = SIZE_MAX / 2 + 4096;  // volatile, as the compiler would warn of it
  EXPECT_EQ(curlProbe().memory.realloc(block, tooMuch), nullptr);
  EXPECT_STREQ(static_cast<const char*>(block), kSecret);
  curlProbe().memory.free(block);
}

}  // namespace
}  // namespace kelt::provision
