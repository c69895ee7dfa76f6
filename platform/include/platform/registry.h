#pragma once
// Registry emulation: the values of one INI file behind registry calls.
//
// A section per key ("[SOFTWARE\...]", below HKEY_LOCAL_MACHINE), a line per value: "name=dword:0000010e" (type 5,
// eight hexadecimal digits, a number whatever the byte order of the machine) or "name=hex:30,82,..." (type 6). Key and
// value names are matched without regard to case (ASCII). Sections of one name count as one key; of several values of
// one name the first is read, and deleting deletes all. Files over 16 MiB are refused; memory is a small multiple of
// the file's size, whatever stands in it.
//
// Every call that takes a key returns kRegistryBadData for one that is not open, and for a null where none is allowed.

#include <cstdint>

/// Statuses of the calls below.
enum RegistryStatus : int {
  kRegistrySuccess = 0,
  kRegistryNotFound = 2,
  kRegistryAccessDenied = 5,
  kRegistryBadData = 13,
  kRegistryMoreData = 234,
};

/// Types of values.
enum RegistryType : std::uint32_t { kRegistryNumber = 5, kRegistryBytes = 6 };

/// The predefined root key.
// NOLINTNEXTLINE(performance-no-int-to-ptr): a handle value by definition
inline void* const HKEY_LOCAL_MACHINE = reinterpret_cast<void*>(static_cast<std::uintptr_t>(0x80000002U));

/// Binds the emulation to its file. Nothing is read yet: a missing file shows when a key is opened. Keys that are open
/// go on with the file they were opened from. Returns kRegistrySuccess, or kRegistryBadData for a null or empty path.
int InitializeRegistry(const wchar_t* file);

/// Opens the key `path` below `root` (HKEY_LOCAL_MACHINE) and puts a handle into `*key`, to be closed with RegCloseKey.
/// Returns kRegistryNotFound when the file or the key is missing, kRegistryAccessDenied when the file cannot be read,
/// kRegistryBadData when it is no such file; `*key` is then unchanged.
int RegOpenKey(void* root, const char* path, void** key);

/// Reads a value. On entry `*type` is the type wanted and `*size` the room at `data` in bytes; on success both tell
/// what was stored. A number is stored as std::uint32_t. Returns kRegistryNotFound; kRegistryBadData when the value is
/// of another type or not well-formed; kRegistryMoreData when it does not fit, or `data` is null. In the last two cases
/// `*size` tells the size needed (0 for a value that is neither a number nor bytes) and `data` is untouched. `reserved`
/// must be null.
int RegQueryValueEx(void* key, const char* name, std::uint32_t* reserved, std::uint32_t* type, void* data,
                    std::uint32_t* size);

/// Deletes a value. The file is rewritten when the key is closed. Returns kRegistryNotFound when there is none. Throws
/// std::bad_alloc; then the file keeps the values that were deleted through this key before, too, so that it never
/// loses some of them only.
int RegDeleteValue(void* key, const char* name);

/// Closes the key, which is no handle afterwards. When values were deleted, takes them out of the file as it is now and
/// replaces it (base/file_replace.h), with all other sections, values, comments and their order kept. Returns
/// kRegistryAccessDenied when that fails; base/file_replace.h tells what then stands there. A file that is gone is no
/// failure.
int RegCloseKey(void* key);
