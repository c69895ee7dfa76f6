#include "crypto/key_store.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "device_paths.h"

#include "base/file_read.h"
#include "base/file_replace.h"
#include "base/unique_fd.h"
#include "base/utf.h"
#include "platform/afile.h"
#include "platform/iconfiguration.h"
#include "platform/refusals.h"

namespace kelt::platform {
namespace {

using KeyType = KeyStore::KeyType;

constexpr mode_t kOthersWrite = S_IWGRP | S_IWOTH;

const char* fileNameOf(KeyType type) {
  switch (type) {
    case KeyType::kAgentSecret:
      return "agent-secret.der";
    case KeyType::kAgentPublic:
      return "agent-public.der";
    case KeyType::kServerPublic:
      return "server-public.der";
    case KeyType::kServerRequestSecret:
      return "server-request-secret.der";
  }
  return nullptr;
}

bool bPublic(KeyType type) {
  return type == KeyType::kAgentPublic || type == KeyType::kServerPublic;
}

Error refused(const std::string& subject, const char* why) {
  return {ErrorKind::kRefused, 0, subject + ": " + why};
}

/// Sets permission bits where they are others.
Status setMode(int fd, mode_t mode, const std::string& path) {
  struct stat info {};
  if (::fstat(fd, &info) != 0) return base::systemError("examine " + path);
  // Only where they differ: on a file system that is read-only for now, keys can still be read.
  if ((info.st_mode & 07777U) == mode || ::fchmod(fd, mode) == 0) return {};
  return base::systemError("set the mode of " + path);
}

/// Opens the directory and judges it by what was opened.
Result<base::UniqueFd> openAsItIs(const std::string& path, uid_t owner) {
  // No link: whoever may write beside it could have secrets stored where he reads.
  base::UniqueFd directory(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!directory) {
    if (errno == ENOTDIR || errno == ELOOP) return refused(path, "is not a directory");
    return base::systemError("open " + path);
  }
  struct stat info {};
  if (::fstat(directory.get(), &info) != 0) return base::systemError("examine " + path);
  if (info.st_uid != owner) return refused(path, "belongs to somebody else");
  return directory;
}

/// The same, and takes the rights of others away.
Result<base::UniqueFd> openKeyStore(const std::string& path) {
  auto opened = openAsItIs(path, ::geteuid());
  if (!opened) return opened.error();
  base::UniqueFd directory = std::move(opened).value();
  struct stat info {};
  if (::fstat(directory.get(), &info) != 0) return base::systemError("examine " + path);
  // From here on nobody else puts anything there; what is there already is judged file by file.
  const Status narrowed = setMode(directory.get(), 0700, path);
  // That others may look at the names is no reason to refuse; that they may put files there is.
  if (!narrowed && (info.st_mode & kOthersWrite) != 0) return narrowed.error();
  return directory;
}

/// Opens a file of the open key store and judges it by what was opened: others may have put files there while they had
/// the right to, and names for files of ours.
Result<base::UniqueFd> openStored(int store, const std::string& storePath, const char* name, uid_t owner) {
  constexpr int kFlags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
  const std::string path = storePath + "/" + name;
  base::UniqueFd file(::openat(store, name, kFlags));
  if (!file) {
    if (errno == ELOOP) return refused(path, "is a symbolic link");
    return base::systemError("open " + path);
  }
  struct stat info {};
  if (::fstat(file.get(), &info) != 0) return base::systemError("examine " + path);
  if (!S_ISREG(info.st_mode)) return refused(path, "is not a regular file");
  if (info.st_uid != owner) return refused(path, "belongs to somebody else");
  if (info.st_nlink > 1) return refused(path, "has other names");
  return file;
}

Status makeDirectory(const std::string& path) {
  if (::mkdir(path.c_str(), 0700) != 0) {
    return errno == EEXIST ? Status() : base::systemError("make " + path);
  }
  // Before anything comes into it: a power cut could else take directory and keys together.
  return base::syncDirectory(base::directoryOf(path));
}

/// base::replaceFile keeps owner and mode of what it replaces and follows links, which a secret must not rely on.
Status takeOwnership(int store, const std::string& storePath, const char* name) {
  const auto file = openStored(store, storePath, name, ::geteuid());
  if (!file) return file.error().kind == ErrorKind::kNotFound ? Status() : file.error();
  return setMode(file.value().get(), 0600, storePath + "/" + name);
}

/// A single call that the system refuses says nothing about a key, and callers may go on without it. So what fails like
/// that is done once more.
template <typename Do>
auto despiteOneRefusal(Do act) {
  auto done = act();
  return !done && done.error().kind == ErrorKind::kSystem ? act() : std::move(done);
}

/// Removes one file of the key store; one that is not there counts as removed.
bool removeStored(const std::string& path) {
  return ::unlink(path.c_str()) == 0 || errno == ENOENT;
}

}  // namespace

std::string keyStorePath() {
  using quorvane_com::orv::configuration::IConfiguration;
  // Not kept: it is where the configuration says that it is now.
  const std::wstring data = IConfiguration::GetConfiguration().GetFrameworkDataDirectory();
  return base::toUtf8(APath(data, base::toWide(paths::kKeyStoreDirName)).str());
}

Status prepareKeyStore(const std::string& path) {
  if (Status made = makeDirectory(path); !made) return made;
  const auto directory = openKeyStore(path);
  if (!directory) return directory.error();
  // Once more, and strictly: where the rights of others to look cannot be taken away, openKeyStore goes on, so that
  // keys can be read; no import begins then.
  return setMode(directory.value().get(), 0700, path);
}

namespace {

Result<base::SecretBytes> readFrom(const base::UniqueFd& directory, const std::string& store, const char* name,
                                   std::size_t limit, uid_t owner) {
  const auto file = openStored(directory.get(), store, name, owner);
  if (!file) return file.error();
  const std::string path = store + "/" + name;
  struct stat info {};
  if (::fstat(file.value().get(), &info) != 0) return base::systemError("examine " + path);
  // Who may write to it can have put a key of his own there.
  if ((info.st_mode & kOthersWrite) != 0) return refused(path, "can be written by others");
  return base::readAll(file.value().get(), path, limit);
}

}  // namespace

Result<base::SecretBytes> readStored(const std::string& store, const char* name, std::size_t limit) {
  const auto directory = openKeyStore(store);
  if (!directory) return directory.error();
  return readFrom(directory.value(), store, name, limit, ::geteuid());
}

Status judgeKeyStore(const std::string& path, uid_t owner) {
  const auto directory = openAsItIs(path, owner);
  return directory ? Status() : directory.error();
}

Result<base::SecretBytes> readStoredAsItIs(const std::string& store, const char* name, std::size_t limit, uid_t owner) {
  const auto directory = openAsItIs(store, owner);
  if (!directory) return directory.error();
  return readFrom(directory.value(), store, name, limit, owner);
}

const char* storedName(KeyType type) {
  return fileNameOf(type);
}

Status storeFile(const std::string& store, const char* name, std::span<const unsigned char> data) {
  const auto directory = openKeyStore(store);
  if (!directory) return directory.error();
  if (Status owned = takeOwnership(directory.value().get(), store, name); !owned) return owned;
  return base::replaceFile(store + "/" + name, data, {.mode = 0600});
}

KeyStore::KeyStore(std::string path, CryptoEngine& engine, const Logger* logger)
    : m_path(std::move(path)), m_engine(engine), m_logger(logger) {}

bool KeyStore::discardAgentKeys() {
  // The secret goes first: a public key without its secret is no pair, whenever the power fails.
  const bool bSecretGone = removeStored(m_path + "/" + fileNameOf(KeyType::kAgentSecret));
  const bool bPublicGone = removeStored(m_path + "/" + fileNameOf(KeyType::kAgentPublic));
  return base::syncDirectory(m_path).ok() && bSecretGone && bPublicGone;
}

bool KeyStore::importKeyFromFile(KeyType type, const std::wstring& path) {
  const std::string file = base::toUtf8(path);
  // Whole, reading and storing: which of its calls was refused does not matter.
  const Status done = despiteOneRefusal([&]() -> Status {
    const auto content = base::readFile(file, kMaxKeyFileSize);
    return content ? importBytes(type, content.value()) : content.error();
  });
  return report(done, file);
}

bool KeyStore::importKey(KeyType type, const unsigned char* bytes, std::size_t length) {
  return report(importBytes(type, {bytes, bytes == nullptr ? 0 : length}), "memory");
}

bool KeyStore::exportKey(KeyType type, ABuffer& out) {
  const char* name = fileNameOf(type);
  // A secret key leaves the store by no operation.
  if (name == nullptr || !bPublic(type)) return false;
  const auto file = despiteOneRefusal([&] { return readStored(m_path, name, kMaxKeyFileSize); });
  if (!file) logRefusal(file.error());
  if (!file) return false;
  // Read as a key again: what is given out is one, whatever has become of the file.
  const auto key = m_engine.publicKey(file.value());
  if (!key) logRefusal({key.error().kind, 0, m_path + "/" + name + ": " + key.error().message});
  if (!key) return false;
  out = ABuffer(std::span<const unsigned char>(key.value()));
  return true;
}

Status KeyStore::importBytes(KeyType type, std::span<const unsigned char> file) {
  const char* name = fileNameOf(type);
  if (name == nullptr) return Error{ErrorKind::kRefused, 0, "no such key type"};
  if (bPublic(type)) {
    const auto key = m_engine.publicKey(file);
    return key ? storeFile(m_path, name, key.value()) : key.error();
  }
  // Never copied as it came: what is kept is one key of that kind in one form, and nothing besides.
  const auto key = m_engine.secretKey(file);
  return key ? storeFile(m_path, name, key.value()) : key.error();
}

bool KeyStore::report(const Status& status, const std::string& subject) const {
  if (status) return true;
  logRefusal(subject, status.error());
  if (m_logger != nullptr) {
    m_logger->info(base::toWide("The key in " + subject + " was not imported: " + status.error().message));
  }
  return false;
}

}  // namespace kelt::platform
