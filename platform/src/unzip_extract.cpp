#include "unzip_extract.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/file_replace.h"

namespace kelt::platform {
namespace {

constexpr int kDirectory = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

base::Result<base::UniqueFd> openDirectory(const base::UniqueFd& above, const std::string& name) {
  base::UniqueFd fd(::openat(above.get(), name.c_str(), kDirectory));
  if (!fd) return base::systemError("open a directory of the archive");
  return fd;
}

/// A name that nobody can have foreseen and planted something under.
std::string temporaryName() {
  std::array<unsigned char, 16> bytes{};
  std::string name = ".keltconfig-";
  if (::getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) return name;
  constexpr std::string_view kDigits = "0123456789abcdef";
  for (const unsigned char byte : bytes) {
    name += kDigits[byte >> 4U];
    name += kDigits[byte & 0xFU];
  }
  return name;
}

bool bDirectoryThere(const base::UniqueFd& parent, const std::string& name) {
  struct stat info {};
  return ::fstatat(parent.get(), name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(info.st_mode);
}

}  // namespace

StagedTree::~StagedTree() {
  if (!m_committed) takeBack();
}

base::Status StagedTree::add(const ZipArchive& archive, const JudgedEntry& judged) {
  if (judged.directory) return makeDirectories(judged.parts, judged.parts.size());
  if (auto status = makeDirectories(judged.parts, judged.parts.size() - 1); !status) return status;
  return addFile(archive, judged);
}

base::Status StagedTree::commit() {
  for (StagedFile& file : m_files) {
    if (auto status = rename(file); !status) return status;
  }
  if (::fsync(m_root.get()) != 0 && errno != EINVAL) return base::systemError("sync the directory");
  m_committed = true;
  return {};
}

base::Result<base::UniqueFd> StagedTree::openParent(const Parts& parts) const {
  base::UniqueFd current(::fcntl(m_root.get(), F_DUPFD_CLOEXEC, 0));
  if (!current) return base::systemError("duplicate a descriptor");
  for (std::size_t i = 0; i + 1 < parts.size(); ++i) {
    auto next = openDirectory(current, parts[i]);
    if (!next) return next;
    current = std::move(next).value();
  }
  return current;
}

base::Status StagedTree::makeDirectories(const Parts& parts, std::size_t count) {
  base::UniqueFd current(::fcntl(m_root.get(), F_DUPFD_CLOEXEC, 0));
  if (!current) return base::systemError("duplicate a descriptor");
  for (std::size_t i = 0; i < count; ++i) {
    if (::mkdirat(current.get(), parts[i].c_str(), 0700) == 0) {
      m_madeDirectories.emplace_back(parts.begin(), parts.begin() + static_cast<std::ptrdiff_t>(i) + 1);
    } else if (errno != EEXIST) {
      return base::systemError("make a directory of the archive");
    }
    auto next = openDirectory(current, parts[i]);
    if (!next) return next.error();
    current = std::move(next).value();
  }
  return {};
}

base::Status StagedTree::addFile(const ZipArchive& archive, const JudgedEntry& judged) {
  auto parent = openParent(judged.parts);
  if (!parent) return parent.error();
  if (bDirectoryThere(parent.value(), judged.parts.back())) {
    return base::Error{base::ErrorKind::kRefused, EISDIR, "a directory stands where a file of the archive goes"};
  }
  StagedFile file{judged.parts, temporaryName(), false};
  const base::UniqueFd target(::openat(parent.value().get(), file.temporary.c_str(),
                                       O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!target) return base::systemError("make a file of the archive");
  m_files.push_back(std::move(file));
  const ZipSink write = [&](std::span<const unsigned char> piece) { return base::writeAll(target.get(), piece); };
  if (auto status = archive.read(judged.entry, write); !status) return status;
  if (::fsync(target.get()) != 0) return base::systemError("sync a file of the archive");
  return {};
}

base::Status StagedTree::rename(StagedFile& file) const {
  auto parent = openParent(file.parts);
  if (!parent) return parent.error();
  const int fd = parent.value().get();
  if (::renameat(fd, file.temporary.c_str(), fd, file.parts.back().c_str()) != 0) {
    return base::systemError("name a file of the archive");
  }
  file.renamed = true;
  if (file.parts.size() > 1 && ::fsync(fd) != 0 && errno != EINVAL) return base::systemError("sync a directory");
  return {};
}

void StagedTree::takeBack() {
  for (const StagedFile& file : m_files) {
    auto parent = openParent(file.parts);
    const std::string& name = file.renamed ? file.parts.back() : file.temporary;
    if (parent) ::unlinkat(parent.value().get(), name.c_str(), 0);
  }
  for (auto parts = m_madeDirectories.rbegin(); parts != m_madeDirectories.rend(); ++parts) {
    auto parent = openParent(*parts);
    if (parent) ::unlinkat(parent.value().get(), parts->back().c_str(), AT_REMOVEDIR);
  }
}

}  // namespace kelt::platform
