#include "fault/gate/secrets.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/unique_fd.h"

namespace kelt::tests::gate {
namespace {

constexpr std::size_t kPiece = 16;
constexpr std::size_t kStep = 48;
constexpr mode_t kReadableByOthers = S_IRGRP | S_IROTH;
constexpr mode_t kEnteredByOthers = S_IXGRP | S_IXOTH;

std::string inHexadecimal(std::string_view bytes) {
  std::string text;
  for (const char byte : bytes) {
    const auto value = static_cast<unsigned char>(byte);
    if (!text.empty()) text += ',';
    text += "0123456789abcdef"[value >> 4U];
    text += "0123456789abcdef"[value & 15U];
  }
  return text;
}

/// Whether others get as far as the directory that the path stands in.
bool bReachable(const std::string& path) {
  for (std::size_t slash = path.rfind('/'); slash != 0 && slash != std::string::npos;
       slash = path.rfind('/', slash - 1)) {
    struct stat info {};
    if (::stat(path.substr(0, slash).c_str(), &info) != 0) return true;
    if ((info.st_mode & kEnteredByOthers) == 0) return false;
  }
  return true;
}

}  // namespace

void Secrets::addKey(const std::string& file) {
  // What comes first in it is public: the modulus.
  for (std::size_t at = file.size() / 3; at + kPiece <= file.size(); at += kStep) {
    m_needles.push_back(file.substr(at, kPiece));
    m_needles.push_back(inHexadecimal(file.substr(at, kPiece)));
  }
}

bool Secrets::bIn(std::string_view content) const {
  return std::any_of(m_needles.begin(), m_needles.end(),
                     [&](const std::string& needle) { return content.find(needle) != std::string_view::npos; });
}

bool Secrets::bExposedAt(const std::string& path) const {
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode) || (info.st_mode & kReadableByOthers) == 0)
    return false;
  const base::UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  std::string content(static_cast<std::size_t>(info.st_size), '\0');
  if (!fd || ::pread(fd.get(), content.data(), content.size(), 0) != static_cast<ssize_t>(content.size())) return false;
  if (!bIn(content)) return false;
  std::array<char, PATH_MAX> name{};  // a path below /proc/N/fd is a link to the file
  return ::realpath(path.c_str(), name.data()) == nullptr || bReachable(name.data());
}

}  // namespace kelt::tests::gate
