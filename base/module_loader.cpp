#include "base/module_loader.h"

#include <array>
#include <climits>
#include <dlfcn.h>
#include <unistd.h>

namespace kelt::base {
namespace {

/// The directory of the running binary; empty when the system does not tell.
std::string directoryOfBinary() {
  std::array<char, PATH_MAX> link{};
  const ssize_t length = ::readlink("/proc/self/exe", link.data(), link.size());
  if (length <= 0) return {};
  const std::string path(link.data(), static_cast<std::size_t>(length));
  return path.substr(0, path.rfind('/'));
}

Error loaderError(const std::string& path) {
  const char* reason = ::dlerror();
  return {ErrorKind::kSystem, 0, reason != nullptr ? reason : path + ": cannot be loaded"};
}

Result<void*> loadFrom(const std::string& path, const char* symbol) {
  void* module = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (module == nullptr) return loaderError(path);
  void* address = ::dlsym(module, symbol);
  if (address == nullptr) return loaderError(path);
  return address;
}

}  // namespace

Result<void*> loadModuleSymbol(const std::string& name, const char* symbol) {
  const std::string file = "/keltconfig-" + name + ".so";
  for (const std::string& directory : {directoryOfBinary(), std::string(KELT_MODULE_DIR)}) {
    const std::string path = directory + file;
    if (!directory.empty() && ::access(path.c_str(), F_OK) == 0) return loadFrom(path, symbol);
  }
  return Error{ErrorKind::kNotFound, 0, "keltconfig-" + name + ".so: not installed"};
}

}  // namespace kelt::base
