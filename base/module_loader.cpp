#include "base/module_loader.h"

#include <array>
#include <climits>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/trusted_file.h"

namespace kelt::base {
namespace {

constexpr const char* kBinary = "/proc/self/exe";

/// The directory of the running binary; empty when the system does not tell.
std::string directoryOfBinary() {
  // By the kernel's word: the name by which the program was called is the caller's choice.
  std::array<char, PATH_MAX> link{};
  const ssize_t length = ::readlink(kBinary, link.data(), link.size());
  if (length <= 0) return {};
  const std::string path(link.data(), static_cast<std::size_t>(length));
  return path.substr(0, path.rfind('/'));
}

/// Root, and whoever could have changed the binary itself.
Trust ownersOfParts() {
  struct stat info {};
  const bool bKnown = ::stat(kBinary, &info) == 0;
  return {.owner = bKnown ? info.st_uid : 0, .bJudgesGroup = true};
}

std::string replaceAll(std::string text, const std::string& from, const std::string& to) {
  for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
    text.replace(at, from.size(), to);
  return text;
}

/// The loader's message, with the path by which people know the part in place of the one by which it was loaded.
Error loaderError(const std::string& loaded, const std::string& path) {
  const char* reason = ::dlerror();
  if (reason == nullptr) return {ErrorKind::kSystem, 0, path + ": cannot be loaded"};
  return {ErrorKind::kSystem, 0, replaceAll(reason, loaded, path)};
}

/// Loads what was judged: by its name in the open directory, in which none but its owner can put another file there.
/// Not by the descriptor of the file, since the part may look for its libraries beside itself ($ORIGIN).
Result<void*> loadJudged(OpenedFile part, const char* symbol) {
  const std::string loaded = "/proc/self/fd/" + std::to_string(part.directory.get()) + "/" + part.name;
  // With all symbols at once, so that one that is missing shows now, and none of its own for other parts.
  void* module = ::dlopen(loaded.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (module == nullptr) return loaderError(loaded, part.path);
  // Open to the end, as the part is: the loader keeps the path, and no other directory must ever stand for it.
  static_cast<void>(part.directory.release());
  void* address = ::dlsym(module, symbol);
  if (address == nullptr) return loaderError(loaded, part.path);
  return address;
}

}  // namespace

Result<OpenedFile> findModule(const std::string& name) {
  const std::string file = "/keltconfig-" + name + ".so";
  const Trust trust = ownersOfParts();
  // Beside the binary first, for a build tree. A part that is there and is refused ends the search, as another one in
  // its place would hide that.
  for (const std::string& directory : {directoryOfBinary(), std::string(KELT_MODULE_DIR)}) {
    if (directory.empty()) continue;
    auto part = openTrusted(AT_FDCWD, "", directory + file, trust);
    if (part || part.error().kind != ErrorKind::kNotFound) return part;
  }
  return Error{ErrorKind::kNotFound, 0, file.substr(1) + ": not installed"};
}

Result<void*> loadModuleSymbol(const std::string& name, const char* symbol) {
  auto part = findModule(name);
  if (!part) return part.error();
  return loadJudged(std::move(part).value(), symbol);
}

}  // namespace kelt::base
