#pragma once
// The agent's crypto library: its mode, its key store, and hashing. On OpenSSL 3, which only runs that touch a key
// load.

#include <cstddef>
#include <memory>
#include <string>

#include "platform/abuffer.h"

namespace kelt::platform {

/// The most bytes that a key file may have, in any form: a key of 16384 bits takes 13 KB as text.
inline constexpr std::size_t kMaxKeyFileSize = std::size_t{64} * 1024;

}  // namespace kelt::platform

namespace quorvane_com::QV::crypto {

/// Which implementation of the algorithms the agent uses; the numbers are those of its files.
enum class Mode : int { kFips = 0, kNonFips = 2 };
enum class KeySize : int { kLower = 0, kHigher = 1 };  ///< 1024 and 2048 bits
/// Whom the library works for. It makes no difference to this one.
enum class Role : int { kDefault = 0 };
enum class HashType : int { kSha256 = 2 };
/// The keys that the key store holds, each in a file of its own.
enum class KeyType : int { kAgentSecret = 0, kAgentPublic = 1, kServerPublic = 2, kServerRequestSecret = 3 };

/// What receives messages: source name, message. Both zero-terminated.
using LogCallback = void (*)(const wchar_t* source, const wchar_t* message);

/// The callbacks through which the library speaks; any may be null. Only the first two are used.
class CryptShimLogger {
 public:
  CryptShimLogger(LogCallback onError, LogCallback onInfo, LogCallback reserved1, LogCallback reserved2)
      : m_error(onError), m_info(onInfo), m_reserved1(reserved1), m_reserved2(reserved2) {}

  /// Hands `message` to the callback for errors, or for information, as a message of the library's; without one nothing
  /// happens.
  void error(const std::wstring& message) const;
  void info(const std::wstring& message) const;

 private:
  LogCallback m_error;
  LogCallback m_info;
  [[maybe_unused]] LogCallback m_reserved1;
  [[maybe_unused]] LogCallback m_reserved2;
};

/// The mode and key size that the agent runs in: "keyconf.ini" in the key store, lines "mode=N" and "keysize=N".
class KeyConf {
 public:
  /// Reads nothing yet: each question reads the file.
  KeyConf() = default;

  /// Reads the value. False, with the argument unchanged, where the file is missing or a value of it is missing or not
  /// of its enumeration.
  [[nodiscard]] bool getCryptoMode(Mode& mode) const;
  [[nodiscard]] bool getCryptoKeySize(KeySize& keySize) const;

  /// Records both, replacing the file (0600; the key store is made 0700 if missing). False when that fails; the file is
  /// then as it was, unless only the last step failed, which makes the change last.
  bool SetCryptoMode(Mode mode, KeySize keySize);
};

/// The agent's key store: one file per key type, as docs/formats.md has them. Why something was refused goes to the
/// agent log; no message holds anything of a key.
class IKeyManagement {
 public:
  /// Not to be called: destroy_key_manager_object gives the object back.
  virtual ~IKeyManagement() = default;

  /// To be called when the key size changes: discards the agent's own pair, which the agent then makes anew. Returns
  /// false where a file of the pair is left, or the removal cannot be made to last.
  virtual bool discardAgentKeys() = 0;

  /// Imports the RSA key in the file at `path` (DER or PEM; public as SubjectPublicKeyInfo or PKCS#1, secret as PKCS#8
  /// or PKCS#1, unencrypted). False, with the key store as it was, for whatever is not exactly one key of that kind,
  /// and when it cannot be stored; the new key is in it then if only the last step failed, which makes the change last.
  virtual bool importKeyFromFile(KeyType type, const std::wstring& path) = 0;

  /// Exports a public key as DER SubjectPublicKeyInfo. False, with `out` unchanged, where there is none, and for the
  /// types of secret keys.
  virtual bool exportKey(KeyType type, ABuffer& out) = 0;

  /// Imports a key from bytes, as importKeyFromFile.
  virtual bool importKey(KeyType type, const unsigned char* bytes, std::size_t length) = 0;
};

/// A hash function, made by CryptShim::create_hash_object.
class IHash {
 public:
  /// Not to be called: destroy_hash_object gives the object back.
  virtual ~IHash() = default;

  /// Hashes `in` into `out`. False, with `out` unchanged, on failure.
  virtual bool hash(const ABuffer& in, ABuffer& out) = 0;
};

/// The library itself, one per process.
class CryptShim {
 public:
  CryptShim(const CryptShim&) = delete;
  CryptShim& operator=(const CryptShim&) = delete;
  virtual ~CryptShim() = default;

  /// The one object of the process, never null, in mode kNonFips until configure is called.
  [[nodiscard]] static CryptShim* instance();

  /// Chooses mode and logger for this process; nothing is loaded yet. The library keeps the logger for the life of the
  /// process and never frees it. `configName` names a module signature that this library has no use for. May throw
  /// (std::runtime_error) for a mode that is not of its enumeration.
  static void configure(Mode mode, Role role, CryptShimLogger* logger, const std::wstring& configName);

  /// Selects the key size in which the agent makes its own keys; imports accept any size.
  static void set_key_size_to_use(KeySize keySize);

  /// Starts the library in the configured mode. FIPS mode uses OpenSSL's FIPS provider where the system has one, else
  /// the default provider restricted to approved algorithms, said once through the information callback. False, with a
  /// message through the error callback, when OpenSSL cannot be started.
  virtual bool initialize() = 0;

  /// Ends it. True also when it was not started.
  virtual bool deinitialize() = 0;

  /// The key store, or null where the library cannot be started (which this does when needed, silently) or the key
  /// store's directory cannot be used. To be given back with destroy_key_manager_object.
  [[nodiscard]] static IKeyManagement* create_key_manager_object();
  static void destroy_key_manager_object(IKeyManagement* keys);

  /// A hash object of that type, or null. To be given back with destroy_hash_object.
  [[nodiscard]] static IHash* create_hash_object(HashType type);
  static void destroy_hash_object(IHash* hash);

 protected:
  CryptShim() = default;
};

}  // namespace quorvane_com::QV::crypto
