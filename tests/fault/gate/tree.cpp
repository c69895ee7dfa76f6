#include "fault/gate/tree.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/unique_fd.h"

namespace kelt::tests::gate {
namespace {

constexpr std::array kTops = {"/etc/orv.d", "/opt/Quorvane", "/run", "/tmp"};
constexpr mode_t kPermissions = 07777;

/// Returns false when it cannot be read.
bool readInto(const std::string& path, std::string& content) {
  const base::UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  struct stat info {};
  if (!fd || ::fstat(fd.get(), &info) != 0) return false;
  content.resize(static_cast<std::size_t>(info.st_size));
  return ::read(fd.get(), content.data(), content.size()) == static_cast<ssize_t>(content.size());
}

Entry entryAt(const std::string& path, const struct stat& info) {
  Entry entry{'?', info.st_mode & kPermissions, {}};
  if (S_ISDIR(info.st_mode)) {
    entry.kind = 'd';
  } else if (S_ISREG(info.st_mode)) {
    entry.kind = 'f';
    require(readInto(path, entry.content), "read " + path);
  } else if (S_ISLNK(info.st_mode)) {
    std::array<char, 4096> target{};
    const ssize_t length = ::readlink(path.c_str(), target.data(), target.size());
    entry.kind = 'l';
    entry.content.assign(target.data(), length < 0 ? 0 : static_cast<std::size_t>(length));
  }
  return entry;
}

void addAll(Tree& tree, const std::string& directory) {
  DIR* const listing = ::opendir(directory.c_str());
  require(listing != nullptr, "list " + directory);
  while (const dirent* const item = ::readdir(listing)) {
    const std::string name = item->d_name;
    if (name == "." || name == "..") continue;
    const std::string path = directory + "/" + name;
    struct stat info {};
    require(::lstat(path.c_str(), &info) == 0, "examine " + path);
    const Entry& entry = tree[path] = entryAt(path, info);
    if (entry.kind == 'd') addAll(tree, path);
  }
  ::closedir(listing);
}

void make(const std::string& path, const Entry& entry) {
  if (entry.kind == 'd') {
    require(::mkdir(path.c_str(), entry.mode) == 0 || errno == EEXIST, "make " + path);
  } else if (entry.kind == 'l') {
    require(::symlink(entry.content.c_str(), path.c_str()) == 0, "make " + path);
    return;
  } else {
    const base::UniqueFd fd(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    const std::string& content = entry.content;
    require(fd.bValid() && ::write(fd.get(), content.data(), content.size()) == static_cast<ssize_t>(content.size()),
            "write " + path);
  }
  require(::chmod(path.c_str(), entry.mode) == 0, "set the mode of " + path);
}

}  // namespace

void require(bool done, const std::string& what) {
  if (done) return;
  std::fprintf(stderr, "gate: %s: %s\n", what.c_str(), std::strerror(errno));
  std::exit(99);
}

Tree deviceTree() {
  Tree tree;
  for (const char* top : kTops)
    addAll(tree, top);
  return tree;
}

void bringDeviceTo(const Tree& wanted) {
  Tree there = deviceTree();
  for (auto entry = there.rbegin(); entry != there.rend(); ++entry) {
    const auto keep = wanted.find(entry->first);
    if (keep != wanted.end() && keep->second == entry->second) continue;
    if (keep != wanted.end() && keep->second.kind == 'd' && entry->second.kind == 'd') continue;
    require(::remove(entry->first.c_str()) == 0, "remove " + entry->first);
  }
  for (const auto& [path, entry] : wanted) {
    const auto same = there.find(path);
    if (same == there.end() || !(same->second == entry)) make(path, entry);
  }
}

void separateDevice() {
  require(::unshare(CLONE_NEWNS) == 0, "unshare");
  for (const char* top : kTops)
    require(::mount("trial", top, "tmpfs", 0, "mode=755") == 0, std::string("mount ") + top);
}

void putDirectory(Tree& tree, const std::string& path, mode_t mode) {
  for (std::size_t slash = path.find('/', 1); slash != std::string::npos; slash = path.find('/', slash + 1)) {
    const std::string parent = path.substr(0, slash);
    bool bTop = false;
    for (const char* top : kTops)
      bTop = bTop || std::string(top).rfind(parent, 0) == 0;
    if (!bTop) tree.try_emplace(parent, Entry{'d', 0755, {}});
  }
  tree[path] = Entry{'d', mode, {}};
}

void put(Tree& tree, const std::string& path, std::string content, mode_t mode) {
  const std::string directory = path.substr(0, path.rfind('/'));
  bool bTop = false;
  for (const char* top : kTops)
    bTop = bTop || directory == top;
  if (!bTop && tree.count(directory) == 0) putDirectory(tree, directory);
  tree[path] = Entry{'f', mode, std::move(content)};
}

std::string readFile(const std::string& path) {
  std::string content;
  require(readInto(path, content), "read " + path);
  return content;
}

}  // namespace kelt::tests::gate
