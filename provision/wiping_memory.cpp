#include "provision/wiping_memory.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <curl/curl.h>
#include <malloc.h>

#include "base/secret.h"

namespace kelt::provision {
namespace {

// libcurl asks for and returns raw blocks here; ownership is its own.
// NOLINTBEGIN(cppcoreguidelines-no-malloc,cppcoreguidelines-owning-memory)

void wipingFree(void* block) {
  if (block == nullptr) return;
  base::wipe(block, ::malloc_usable_size(block));
  std::free(block);
}

void* wipingRealloc(void* block, std::size_t size) {
  void* moved = std::malloc(size);
  if (moved == nullptr || block == nullptr) return moved;
  std::memcpy(moved, block, std::min(size, ::malloc_usable_size(block)));
  wipingFree(block);
  return moved;
}

// NOLINTEND(cppcoreguidelines-no-malloc,cppcoreguidelines-owning-memory)

}  // namespace

void giveCurlWipingMemory() {
  curl_global_init_mem(CURL_GLOBAL_DEFAULT, std::malloc, wipingFree, wipingRealloc, ::strdup, std::calloc);
}

}  // namespace kelt::provision
