#include "base/temporary_file.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/random.h>
#include <unistd.h>
#include <utility>

#include "base/retry.h"

namespace kelt::base {
namespace {

constexpr std::size_t kLongestName = 255;
constexpr std::size_t kRandomLength = 12;
constexpr std::string_view kMark = ".kelt-";
// 32 of them, a divisor of 256: made of a random byte, each comes as often as the others.
constexpr std::string_view kAlphabet = "abcdefghijklmnopqrstuvwxyz234567";
/// Random names of this length do not meet. A file system that says they do must not hold the run for ever.
constexpr int kAttempts = 16;

/// As much of `name` as leaves room for the rest, cut between two characters of UTF-8.
std::string_view shortened(std::string_view name) {
  std::size_t length = kLongestName - 1 - kMark.size() - kRandomLength;
  if (name.size() <= length) return name;
  while (length > 0 && (static_cast<unsigned char>(name[length]) & 0xC0U) == 0x80)
    --length;
  return name.substr(0, length);
}

/// Puts random characters at the end of `name`. Returns false, with errno, when the system has none to give.
bool randomizeEnd(std::string& name) {
  std::array<unsigned char, kRandomLength> bytes{};
  const ssize_t got = retryInterrupted([&] { return ::getrandom(bytes.data(), bytes.size(), 0); });
  if (got != static_cast<ssize_t>(bytes.size())) return false;
  std::transform(bytes.begin(), bytes.end(), name.end() - kRandomLength,
                 [](unsigned char byte) { return kAlphabet[byte % kAlphabet.size()]; });
  return true;
}

/// How the descriptor `fd` is named in /proc.
class DescriptorPath {
 public:
  explicit DescriptorPath(int fd) { static_cast<void>(std::snprintf(m_text.data(), m_text.size(), kFormat, fd)); }
  [[nodiscard]] const char* get() const { return m_text.data(); }

 private:
  static constexpr const char* kFormat = "/proc/self/fd/%d";
  std::array<char, 32> m_text{};
};

/// Errors by which kernels and file systems say that they make no files without a name.
bool bNamelessUnknown(int error) {
  return error == EOPNOTSUPP || error == EISDIR || error == EINVAL || error == ENOENT;
}

}  // namespace

TemporaryFile::TemporaryFile(int directory, std::string_view name) : m_directory(directory) {
  m_name.append(".").append(shortened(name)).append(kMark).append(kRandomLength, 'x');
}

TemporaryFile::TemporaryFile(TemporaryFile&& other) noexcept
    : m_directory(other.m_directory),
      m_name(std::move(other.m_name)),
      m_bNamed(std::exchange(other.m_bNamed, false)),
      m_fd(std::move(other.m_fd)) {}

TemporaryFile::~TemporaryFile() {
  if (m_bNamed) ::unlinkat(m_directory, m_name.c_str(), 0);
}

template <typename Take>
Status TemporaryFile::takeName(Take take) {
  for (int attempt = 0; attempt < kAttempts && randomizeEnd(m_name); ++attempt) {
    m_bNamed = take() == 0;
    if (m_bNamed) return {};
    // Only a name that is taken is a reason for another one.
    if (errno != EEXIST) break;
  }
  return systemError("create " + m_name);
}

Result<TemporaryFile> TemporaryFile::create(int directory, std::string_view name) {
  TemporaryFile file(directory, name);
  Status made = file.makeNameless();
  if (!made && bNamelessUnknown(made.error().sysErrno)) made = file.makeNamed();
  if (!made) return made.error();
  return file;
}

Result<TemporaryFile> TemporaryFile::keep(int directory, const std::string& name) {
  TemporaryFile file(directory, name);
  const auto link = [&] { return ::linkat(directory, name.c_str(), directory, file.m_name.c_str(), 0); };
  if (auto kept = file.takeName(link); !kept) return kept.error();
  return file;
}

Status TemporaryFile::makeNameless() {
  m_fd.reset(retryInterrupted([&] { return ::openat(m_directory, ".", O_WRONLY | O_TMPFILE | O_CLOEXEC, 0600); }));
  if (!m_fd) return systemError("create a temporary file " + m_name);
  // By this path it is linked later on; /proc may be missing.
  if (::access(DescriptorPath(m_fd.get()).get(), F_OK) == 0) return {};
  m_fd.reset();
  return systemError("find a temporary file", ENOENT);
}

Status TemporaryFile::makeNamed() {
  return takeName([&] {
    constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    m_fd.reset(retryInterrupted([&] { return ::openat(m_directory, m_name.c_str(), kFlags, 0600); }));
    return m_fd ? 0 : -1;
  });
}

Status TemporaryFile::settle() {
  const DescriptorPath path(m_fd.get());
  // By its path in /proc, since linking a descriptor itself (AT_EMPTY_PATH) takes a capability.
  const auto link = [&] { return ::linkat(AT_FDCWD, path.get(), m_directory, m_name.c_str(), AT_SYMLINK_FOLLOW); };
  if (!m_bNamed) {
    if (auto named = takeName(link); !named) return named;
  }
  // Only now: not every file system keeps what is synced of a file that has no name.
  if (retryInterrupted([&] { return ::fsync(m_fd.get()); }) != 0) return systemError("sync " + m_name);
  m_fd.reset();
  return {};
}

Status TemporaryFile::renameTo(const std::string& name) {
  if (::renameat(m_directory, m_name.c_str(), m_directory, name.c_str()) != 0) return systemError("rename to " + name);
  m_bNamed = false;
  return {};
}

Status TemporaryFile::publish(const Place& place) {
  // The content before the name, and the name before the caller hears of it: a power cut at any point leaves the old
  // file or the new one.
  if (auto done = settle(); !done) return done;
  if (auto done = renameTo(place.name); !done) return done;
  return syncDirectory(m_directory, directoryOf(place.path));
}

Status TemporaryFile::exchangeWith(const std::string& name) {
  if (::renameat2(m_directory, m_name.c_str(), m_directory, name.c_str(), RENAME_EXCHANGE) == 0) return {};
  return systemError("exchange with " + name);
}

bool TemporaryFile::putBack(const std::string& name) noexcept {
  // First: where it cannot be put back, its temporary name is the only one, and must not go with the object.
  m_bNamed = false;
  return ::renameat(m_directory, m_name.c_str(), m_directory, name.c_str()) == 0;
}

bool bTemporaryName(std::string_view name) {
  // All of the pattern, as what fits it is removed: a file of an administrator's that merely resembles it is not.
  const std::size_t least = 1 + kMark.size() + kRandomLength;
  if (name.size() <= least || name.size() > kLongestName || name.front() != '.') return false;
  const std::string_view random = name.substr(name.size() - kRandomLength);
  const std::string_view mark = name.substr(name.size() - kRandomLength - kMark.size(), kMark.size());
  return mark == kMark && random.find_first_not_of(kAlphabet) == std::string_view::npos;
}

}  // namespace kelt::base
