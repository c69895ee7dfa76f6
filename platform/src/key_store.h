#pragma once
// The agent's key store: the directory "keystore" in the agent's data directory, 0700, with a file of 0600 per key.

#include <span>
#include <string>

#include "crypto_engine.h"

#include "base/result.h"
#include "platform/crypto.h"

namespace kelt::platform {

/// The path of the key store, from the agent's configuration as it stands now.
[[nodiscard]] std::string keyStorePath();

/// Makes sure that the key store at `path` may be read: a directory, not a link to one, that belongs to the effective
/// user and that nobody else can write to. Changes nothing. Errors: kNotFound, kRefused, kSystem.
[[nodiscard]] base::Status checkKeyStore(const std::string& path);

/// Makes sure that the key store may be written: makes it where it is missing (its parent has to be there), takes away
/// the rights of others to read it, and otherwise judges as checkKeyStore. Errors: kRefused, kSystem.
[[nodiscard]] base::Status prepareKeyStore(const std::string& path);

/// Replaces the file `name` of the prepared key store by `data`, 0600 whatever its mode was. Errors: kRefused, with
/// nothing changed, for a link, anything else that is not a regular file, and a file of somebody else; kSystem as
/// base::replaceFile.
[[nodiscard]] base::Status storeFile(const std::string& store, const char* name, std::span<const unsigned char> data);

/// The key store on files. Why an import was refused goes to the logger's information callback; what that means to the
/// run is the caller's to say.
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
  [[nodiscard]] base::Status importBytes(KeyType type, std::span<const unsigned char> file);
  [[nodiscard]] bool bReported(const base::Status& status, const std::string& subject) const;

  std::string m_path;
  CryptoEngine& m_engine;
  const Logger* m_logger;
};

}  // namespace kelt::platform
