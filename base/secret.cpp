#include "base/secret.h"

#include <string.h>

namespace kelt::base {
namespace {

template <typename String>
void wipeString(String& text) {
  text.resize(text.capacity());
  wipe(text.data(), text.size() * sizeof(typename String::value_type));
  text.clear();
}

}  // namespace

void wipe(void* memory, std::size_t bytes) {
  if (memory != nullptr) ::explicit_bzero(memory, bytes);
}

void wipe(std::string& text) {
  wipeString(text);
}

void wipe(std::wstring& text) {
  wipeString(text);
}

}  // namespace kelt::base
