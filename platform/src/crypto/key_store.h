#pragma once
// The agent's key store: the directory "keystore" in the agent's data directory, 0700, with a file of 0600 per key.

#include <span>
#include <string>
#include <sys/types.h>

#include "crypto/engine.h"

#include "base/result.h"
#include "base/secret.h"
#include "platform/crypto.h"

namespace kelt::platform {

/// The path of the key store, from the agent's configuration as it stands now.
[[nodiscard]] std::string keyStorePath();

/// Makes sure that the key store at `path` may be written: makes it where it is missing (its parent has to be there)
/// and takes away all rights of others to it. Errors: kRefused, with nothing changed, where it is not a directory, or a
/// link to one, or does not belong to the effective user; kSystem.
[[nodiscard]] Status prepareKeyStore(const std::string& path);

/// Reads the file `name` of the key store, of at most `limit` bytes. Takes the rights of others to the key store away
/// first; where that is not possible, it goes on only if they could write nothing there. Errors: kNotFound; kRefused as
/// prepareKeyStore, and for a link, anything else that is not a regular file, a file of somebody else or with a second
/// name, and one that others may write to; kTooLarge; kSystem.
[[nodiscard]] Result<base::SecretBytes> readStored(const std::string& store, const char* name, std::size_t limit);

/// Replaces the file `name` of the prepared key store by `data`, 0600 whatever its mode was. Errors: kRefused, with
/// nothing changed, as readStored, except that others may have had the right to write to it; kSystem as
/// base::replaceFile.
[[nodiscard]] Status storeFile(const std::string& store, const char* name, std::span<const unsigned char> data);

/// How the key store at `path` stands for the user `owner`, without changing anything. Errors: kNotFound, kRefused as
/// prepareKeyStore; kSystem.
[[nodiscard]] Status judgeKeyStore(const std::string& path, uid_t owner);

/// Reads as readStored does, for the user `owner`, and takes away no rights.
[[nodiscard]] Result<base::SecretBytes> readStoredAsItIs(const std::string& store, const char* name, std::size_t limit,
                                                         uid_t owner);

/// The name of the file in which a key is kept; null for a type that is none.
[[nodiscard]] const char* storedName(quorvane_com::QV::crypto::KeyType type);

/// The key store on files. Why an import was refused goes to the agent log, and to the logger's information callback;
/// what that means to the run is the caller's to say.
class KeyStore final : public quorvane_com::QV::crypto::IKeyManagement {
 public:
  using KeyType = quorvane_com::QV::crypto::KeyType;
  using Logger = quorvane_com::QV::crypto::CryptShimLogger;

  /// Works in the prepared key store at `path`. `engine` and `logger`, which may be null, must outlive the object.
  KeyStore(std::string path, CryptoEngine& engine, const Logger* logger);

  bool discardAgentKeys() override;
  bool importKeyFromFile(KeyType type, const std::wstring& path) override;
  bool exportKey(KeyType type, ABuffer& out) override;
  bool importKey(KeyType type, const unsigned char* bytes, std::size_t length) override;

 private:
  [[nodiscard]] Status importBytes(KeyType type, std::span<const unsigned char> file);
  /// Says why an import of `subject` was refused, if it was. Returns whether it was not.
  [[nodiscard]] bool report(const Status& status, const std::string& subject) const;

  std::string m_path;
  CryptoEngine& m_engine;
  const Logger* m_logger;
};

}  // namespace kelt::platform
