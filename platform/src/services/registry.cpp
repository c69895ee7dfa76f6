#include "platform/registry.h"

#include <cstring>
#include <map>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "services/registry_file.h"

#include "base/file_read.h"
#include "base/file_replace.h"
#include "base/utf.h"
#include "platform/refusals.h"

namespace {

using kelt::ErrorKind;
using kelt::Result;
using kelt::platform::RegistryFile;

/// Far beyond any registry file of the agent.
constexpr std::size_t kMaxFileSize = std::size_t{16} * 1024 * 1024;

struct OpenKey {
  std::string path;  ///< of the file
  std::string section;
  RegistryFile file;
  std::vector<std::string> deleted;  ///< names of values
};

/// What the calls share. Handles are numbers that are never given out twice, not addresses: one that was closed, or
/// never was a handle, is found to be none.
struct Registry {
  std::string path;
  std::uintptr_t lastHandle = 0;
  std::map<std::uintptr_t, OpenKey> keys;
};

Registry& registry() {
  static Registry instance;
  return instance;
}

std::uintptr_t numberOf(void* handle) {
  return reinterpret_cast<std::uintptr_t>(handle);
}

OpenKey* keyOf(void* handle) {
  const auto found = registry().keys.find(numberOf(handle));
  return found == registry().keys.end() ? nullptr : &found->second;
}

int statusOf(ErrorKind kind) {
  switch (kind) {
    case ErrorKind::kNotFound:
      return kRegistryNotFound;
    case ErrorKind::kSystem:
      return kRegistryAccessDenied;
    // There, but of no use: no regular file, too large, or not of its form.
    default:
      return kRegistryBadData;
  }
}

Result<RegistryFile> loadFile(const std::string& path) {
  auto content = kelt::base::readFile(path, kMaxFileSize);
  if (!content) return content.error();
  return RegistryFile::parse(std::move(content).value());
}

int deleteValue(OpenKey& key, const char* name) {
  if (!key.file.remove(key.section, name)) return kRegistryNotFound;
  key.deleted.emplace_back(name);
  return kRegistrySuccess;
}

/// Deletes from the file as it is now, so that what came into it since the key was opened stays. Returns false, with
/// nothing changed, where the file cannot be read or replaced.
bool deleteFromFile(const OpenKey& key) {
  auto file = loadFile(key.path);
  if (!file) return file.error().kind == ErrorKind::kNotFound;
  bool bChanged = false;
  for (const std::string& name : key.deleted)
    bChanged |= file.value().remove(key.section, name);
  // Where another process has deleted them meanwhile, the file is left as it is.
  return !bChanged || kelt::base::replaceFile(key.path, file.value().content()).ok();
}

}  // namespace

int InitializeRegistry(const wchar_t* file) {
  if (file == nullptr || *file == L'\0') return kRegistryBadData;
  // Not looked at yet: an agent without such a file has nothing in it, and that shows when a key is opened.
  registry().path = kelt::base::toUtf8(file);
  return kRegistrySuccess;
}

int RegOpenKey(void* root, const char* path, void** key) {
  if (path == nullptr || key == nullptr) return kRegistryBadData;
  if (root != HKEY_LOCAL_MACHINE || registry().path.empty()) return kRegistryNotFound;
  auto file = loadFile(registry().path);
  if (!file) {
    kelt::platform::logRefusal(registry().path, file.error());
    return statusOf(file.error().kind);
  }
  if (!file.value().bHasSection(path)) return kRegistryNotFound;

  // With the file as it was read: all values that come by this handle are of one state of it.
  const std::uintptr_t handle = ++registry().lastHandle;
  registry().keys.emplace(handle, OpenKey{registry().path, path, std::move(file).value(), {}});
  *key = reinterpret_cast<void*>(handle);  // NOLINT(performance-no-int-to-ptr): a handle, never followed
  return kRegistrySuccess;
}

int RegQueryValueEx(void* key, const char* name, std::uint32_t* reserved, std::uint32_t* type, void* data,
                    std::uint32_t* size) {
  const OpenKey* open = keyOf(key);
  if (open == nullptr || name == nullptr || reserved != nullptr || type == nullptr || size == nullptr) {
    return kRegistryBadData;
  }
  const auto value = open->file.find(open->section, name);
  if (!value && value.error().kind == ErrorKind::kNotFound) return kRegistryNotFound;

  // The size needed is told also where the value is not handed over.
  const std::uint32_t room = *size;
  *size = value ? static_cast<std::uint32_t>(value.value().bytes.size()) : 0;
  if (!value || value.value().type != *type) return kRegistryBadData;
  if (*size > room || (data == nullptr && *size > 0)) return kRegistryMoreData;
  // Null is fine for an empty value, but not for memcpy, whatever the length.
  if (*size > 0) std::memcpy(data, value.value().bytes.data(), *size);
  return kRegistrySuccess;
}

int RegDeleteValue(void* key, const char* name) {
  OpenKey* open = keyOf(key);
  if (open == nullptr || name == nullptr) return kRegistryBadData;
  try {
    return deleteValue(*open, name);
  } catch (const std::bad_alloc&) {
    // All or none: a list without one of its names would delete a part when the key is closed.
    open->deleted.clear();
    throw;
  }
}

int RegCloseKey(void* key) {
  // The handle is none from here on, whatever becomes of the file.
  const auto closed = registry().keys.extract(numberOf(key));
  if (closed.empty()) return kRegistryBadData;
  if (closed.mapped().deleted.empty()) return kRegistrySuccess;
  return deleteFromFile(closed.mapped()) ? kRegistrySuccess : kRegistryAccessDenied;
}
