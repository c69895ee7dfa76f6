// Registry text: nothing but the lines of a deleted value ever changes.

#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz/require.h"
#include "services/registry_file.h"

namespace {

using kelt::base::SecretBytes;
using kelt::platform::RegistryFile;
using kelt::tests::require;

/// A value with all that can be told of it.
std::string described(const RegistryFile& file, const char* name) {
  const auto value = file.find("k", name);
  if (!value) return std::to_string(static_cast<int>(value.error().kind));
  const SecretBytes& bytes = value.value().bytes;
  return "type " + std::to_string(value.value().type) + " " + std::string(bytes.begin(), bytes.end());
}

void checkRemoval(RegistryFile file) {
  const std::string kept = described(file, "w");
  const bool bSection = file.bHasSection("k");
  const auto value = file.find("k", "v");
  const bool bThere = value.ok() || value.error().kind != kelt::base::ErrorKind::kNotFound;
  require(file.remove("k", "v") == bThere, "what is found can be removed, and nothing else");

  const auto again = RegistryFile::parse(file.content());
  require(again.ok(), "the rest is a registry file");
  require(again.value().content() == file.content(), "the rest is kept");
  require(!again.value().find("k", "v").ok(), "the value is gone");
  require(described(again.value(), "w") == kept, "another value is kept");
  require(again.value().bHasSection("k") == bSection, "the section is kept");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const SecretBytes input(data, data + size);
  auto file = RegistryFile::parse(input);
  if (!file) return 0;
  require(file.value().content() == input, "a text that is not changed is kept");
  checkRemoval(std::move(file).value());
  return 0;
}
