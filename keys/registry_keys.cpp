#include "keys/registry_keys.h"

#include <cstdint>
#include <new>
#include <optional>
#include <utility>

#include "base/utf.h"
#include "helper/agent_paths.h"
#include "platform/registry.h"

namespace kelt::keys {
namespace {

using Buffer = AnObjectBuffer<unsigned char>;

/// More than any key takes; a size beyond is damage.
constexpr std::uint32_t kMaxKeySize = 64U * 1024U;

/// The agent's key of the registry emulation, open while the object lives.
class AgentRegistryKey {
 public:
  AgentRegistryKey() {
    InitializeRegistry(base::toWide(helper::paths::kRegistryFile).c_str());
    const auto open = [&] { return RegOpenKey(HKEY_LOCAL_MACHINE, kAgentKey, &m_key); };
    m_openStatus = open();
    // A file that the system refuses for once must not pass for one that holds no keys.
    if (m_openStatus == kRegistryAccessDenied) m_openStatus = open();
  }
  AgentRegistryKey(const AgentRegistryKey&) = delete;
  AgentRegistryKey& operator=(const AgentRegistryKey&) = delete;
  ~AgentRegistryKey() {
    try {
      close();
    } catch (const std::bad_alloc&) {
      return;  // what was to be deleted stays
    }
  }

  [[nodiscard]] int openStatus() const { return m_openStatus; }
  void deleteValue(const char* name) { RegDeleteValue(m_key, name); }

  /// Reads a key stored as two values, its length and its bytes.
  [[nodiscard]] std::optional<Buffer> read(const char* sizeName, const char* bytesName);

  /// Closes the key, which carries out what was deleted. Returns the status of that.
  int close() {
    if (m_openStatus != kRegistrySuccess) return m_openStatus;
    // Before it is closed, so that this is not done again where it throws.
    m_openStatus = kRegistryNotFound;
    return RegCloseKey(std::exchange(m_key, nullptr));
  }

 private:
  void* m_key = nullptr;
  int m_openStatus = kRegistryNotFound;
};

std::optional<Buffer> AgentRegistryKey::read(const char* sizeName, const char* bytesName) {
  std::uint32_t type = kRegistryNumber;
  std::uint32_t size = 0;
  std::uint32_t numberSize = sizeof size;
  if (RegQueryValueEx(m_key, sizeName, nullptr, &type, &size, &numberSize) != kRegistrySuccess) return std::nullopt;
  Buffer bytes;
  if (size > kMaxKeySize) return std::nullopt;
  // Want of memory must not pass for a missing key: the import would choose another mode.
  if (!bytes.allocate(size)) throw std::bad_alloc();
  type = kRegistryBytes;
  if (RegQueryValueEx(m_key, bytesName, nullptr, &type, bytes.data(), &size) != kRegistrySuccess) return std::nullopt;
  // Fewer bytes may be stored than their length value says.
  return Buffer(bytes.span().first(size));
}

struct ValueNames {
  const char* publicSize;
  const char* publicBytes;
  const char* secretSize;
  const char* secretBytes;
};

bool readPair(const ValueNames& names, Buffer& pub, Buffer& sec) {
  AgentRegistryKey key;
  if (key.openStatus() != kRegistrySuccess) return false;
  auto publicKey = key.read(names.publicSize, names.publicBytes);
  if (!publicKey) return false;
  auto secretKey = key.read(names.secretSize, names.secretBytes);
  if (!secretKey) return false;
  // Both or none, as half a pair in the caller's hands would pass for a key.
  pub = std::move(*publicKey);
  sec = std::move(*secretKey);
  return true;
}

}  // namespace

bool getServerKeys(Buffer& pub, Buffer& sec) {
  return readPair({"ServerPubKeyBuffSize", "ServerPublicKey", "ReqSecKeyBuffSize", "ReqSecretKey"}, pub, sec);
}

bool getAgentKeys(Buffer& pub, Buffer& sec) {
  return readPair({"PubKeyBuffSize", "AgentPublicKey", "SecKeyBuffSize", "AgentSecretKey"}, pub, sec);
}

int removeKeys(bool removeGuid) {
  AgentRegistryKey key;
  if (key.openStatus() != kRegistrySuccess) return key.openStatus();
  for (const char* name : {"SecKeyBuffSize", "PubKeyBuffSize", "ServerPubKeyBuffSize", "ReqSecKeyBuffSize",
                           "AgentSecretKey", "AgentPublicKey", "ServerPublicKey", "ReqSecretKey", "ServerKeyHash"}) {
    key.deleteValue(name);
  }
  if (removeGuid) key.deleteValue("AgentGUID");
  return key.close();
}

}  // namespace kelt::keys
