#include "base/temporary_file.h"

#include <array>
#include <cstdio>
#include <fcntl.h>
#include <string_view>
#include <sys/random.h>
#include <unistd.h>

#include "base/retry.h"

namespace kelt::base {
namespace {

constexpr std::size_t kLongestName = 255;
constexpr std::size_t kRandomLength = 12;
constexpr std::string_view kMark = ".kelt-";
constexpr std::string_view kAlphabet = "abcdefghijklmnopqrstuvwxyz234567";
constexpr int kAttempts = 16;

Result<std::string> randomPart() {
  std::array<unsigned char, kRandomLength> bytes{};
  const ssize_t got = retryInterrupted([&] { return ::getrandom(bytes.data(), bytes.size(), 0); });
  if (got != static_cast<ssize_t>(bytes.size())) return systemError("getrandom");
  std::string text;
  for (const unsigned char byte : bytes)
    text.push_back(kAlphabet[byte % kAlphabet.size()]);
  return text;
}

/// As much of `name` as leaves room for the rest, cut between two characters of UTF-8.
std::string shortened(const std::string& name) {
  std::size_t length = kLongestName - 1 - kMark.size() - kRandomLength;
  if (name.size() <= length) return name;
  while (length > 0 && (static_cast<unsigned char>(name[length]) & 0xC0U) == 0x80)
    --length;
  return name.substr(0, length);
}

}  // namespace

TemporaryFile::TemporaryFile(int directory, std::string name, UniqueFd fd)
    : m_directory(directory), m_name(std::move(name)), m_fd(std::move(fd)) {}

TemporaryFile::~TemporaryFile() {
  if (m_fd && !m_name.empty()) ::unlinkat(m_directory, m_name.c_str(), 0);
}

Result<TemporaryFile> TemporaryFile::create(int directory, const std::string& name) {
  const std::string stem = "." + shortened(name) + std::string(kMark);
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    const auto random = randomPart();
    if (!random) return random.error();
    const std::string candidate = stem + random.value();
    UniqueFd fd(retryInterrupted(
        [&] { return ::openat(directory, candidate.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600); }));
    if (fd) return TemporaryFile(directory, candidate, std::move(fd));
    if (errno != EEXIST) break;
  }
  return systemError("create a temporary file for " + name);
}

Status TemporaryFile::renameTo(const std::string& name) {
  if (::renameat(m_directory, m_name.c_str(), m_directory, name.c_str()) != 0) return systemError("rename to " + name);
  m_name.clear();
  return {};
}

}  // namespace kelt::base
