#include "unzip/staged_tree.h"

#include <cerrno>
#include <exception>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/file_replace.h"
#include "base/sweep.h"
#include "base/utf.h"
#include "platform/logger.h"

namespace kelt::platform {
namespace {

bool bDirectoryThere(int parent, const std::string& name) {
  struct stat info {};
  return ::fstatat(parent, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(info.st_mode);
}

Error directoryInTheWay() {
  return {ErrorKind::kRefused, EISDIR, "a directory stands where a file of the archive goes"};
}

/// Errors by which kernels and file systems say that they exchange no names.
bool bExchangeUnknown(int error) {
  return error == EINVAL || error == ENOSYS || error == EOPNOTSUPP;
}

/// What an unpacking that was cut off left in a directory that it made.
void sweep(int directory) {
  for (const std::string& name : base::sweepDirectory(directory))
    logInfo(L"keltcfg", base::toWide("Removed what an interrupted unpacking left, " + name).c_str());
}

void logNotPutBack() noexcept {
  try {
    logError(L"keltcfg", L"A file that an archive replaced could not be put back.");
  } catch (const std::exception&) {
    return;  // without memory there is no log either
  }
}

}  // namespace

StagedTree::~StagedTree() {
  if (!m_bCommitted) undo();
}

Status StagedTree::add(const ZipArchive& archive, const JudgedEntry& judged) {
  if (!judged.bDirectory) return addFile(archive, judged);
  const auto made = directoryFor(judged.parts, judged.parts.size());
  return made ? Status() : Status(made.error());
}

Status StagedTree::commit() {
  // All names, then all directories: until the last of them is on the disk, a failure puts everything back.
  for (StagedFile& file : m_files) {
    if (auto done = takeName(file); !done) return done;
  }
  if (auto done = syncAll(); !done) return done;
  m_bCommitted = true;
  return {};
}

Result<int> StagedTree::directoryFor(const Parts& parts, std::size_t count) {
  // From one open directory to the next, never by a path, in which somebody could put a link meanwhile.
  int current = m_root.get();
  std::string path;
  for (std::size_t i = 0; i < count; ++i) {
    path.append("/").append(parts[i]);
    const auto known = m_directories.find(path);
    if (known != m_directories.end()) {
      current = known->second.get();
      continue;
    }
    auto opened = openOrMake(current, parts[i]);
    if (!opened) return opened.error();
    current = opened.value().get();
    m_directories.emplace(path, std::move(opened).value());
  }
  return current;
}

Result<base::UniqueFd> StagedTree::openOrMake(int parent, const std::string& name) {
  m_made.push_back({parent, name});  // known before it is there
  // Of a killed run it may be left, with temporary files in it: the next one takes it and sweeps it.
  // Closed to others whatever the archive says of its rights: keys may come into it.
  const bool bMade = ::mkdirat(parent, name.c_str(), 0700) == 0;
  const int error = errno;
  if (!bMade) m_made.pop_back();
  if (!bMade && error != EEXIST) return base::systemError("make a directory of the archive", error);
  // No link, which somebody may have put there to have files of the archive written elsewhere.
  base::UniqueFd fd(::openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!fd) return base::systemError("open a directory of the archive");
  if (!bMade) sweep(fd.get());
  return fd;
}

Status StagedTree::addFile(const ZipArchive& archive, const JudgedEntry& judged) {
  const auto directory = directoryFor(judged.parts, judged.parts.size() - 1);
  if (!directory) return directory.error();
  const std::string& name = judged.parts.back();
  // It would show when the names are taken, but by then the whole archive was written for nothing.
  if (bDirectoryThere(directory.value(), name)) return directoryInTheWay();
  auto file = base::TemporaryFile::create(directory.value(), name);
  if (!file) return file.error();
  const int fd = file.value().fd();
  // The umask may have left less.
  if (::fchmod(fd, 0600) != 0) return base::systemError("give a file of the archive its permissions");
  const ZipSink write = [fd](std::span<const unsigned char> piece) { return base::writeAll(fd, piece); };
  if (auto done = archive.read(judged.entry, write); !done) return done;
  if (auto done = file.value().settle(); !done) return done;
  // Settled, so without a descriptor: an archive may have more files than the process may have descriptors.
  m_files.push_back({directory.value(), name, std::move(file).value()});
  return {};
}

/// What stands under the name is kept under a temporary one, until all files have theirs.
Status StagedTree::takeName(StagedFile& file) {
  if (bDirectoryThere(file.directory, file.name)) return directoryInTheWay();
  // In one step where the system can, so that a reader finds the old file or the new one at any moment.
  Status done = file.temporary->exchangeWith(file.name);
  if (!done && bExchangeUnknown(done.error().sysErrno)) done = keepAndReplace(file);
  if (done) file.stage = Stage::kReplaced;
  if (done || done.error().kind != ErrorKind::kNotFound) return done;
  // Nothing stands there.
  done = file.temporary->renameTo(file.name);
  if (done) file.stage = Stage::kNew;
  return done;
}

/// The same in two steps, for file systems that exchange no names: the old file gets a second name, and loses the first
/// to the new one.
Status StagedTree::keepAndReplace(StagedFile& file) {
  auto old = base::TemporaryFile::keep(file.directory, file.name);
  if (!old) return old.error();
  if (auto done = file.temporary->renameTo(file.name); !done) return done;
  file.temporary.emplace(std::move(old).value());
  return {};
}

Status StagedTree::syncAll() const {
  for (const auto& [path, fd] : m_directories) {
    if (auto done = base::syncDirectory(fd.get(), path); !done) return done;
  }
  return base::syncDirectory(m_root.get(), "the directory of the archive");
}

void StagedTree::undo() noexcept {
  // Backwards, so that each step finds what stood there before it was done.
  for (auto file = m_files.rbegin(); file != m_files.rend(); ++file) {
    if (file->stage == Stage::kNew) ::unlinkat(file->directory, file->name.c_str(), 0);
    if (file->stage == Stage::kReplaced && !file->temporary->putBack(file->name)) logNotPutBack();
  }
  m_files.clear();  // and with them the temporary files, which would keep directories
  for (auto made = m_made.rbegin(); made != m_made.rend(); ++made)
    ::unlinkat(made->parent, made->name.c_str(), AT_REMOVEDIR);
  ::fsync(m_root.get());  // what cannot be made to last here is put right by the next unpacking
}

}  // namespace kelt::platform
