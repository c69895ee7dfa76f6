#include "support/private_device.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sched.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "base/unique_fd.h"

namespace fs = std::filesystem;

namespace kelt::tests {
namespace {

std::vector<std::string>& mounted() {
  static std::vector<std::string> paths;
  return paths;
}

void require(bool done, const std::string& what) {
  if (done) return;
  std::fprintf(stderr, "private device: %s: %s\nThe tests need unprivileged or root namespaces of this system.\n",
               what.c_str(), std::strerror(errno));
  std::exit(99);
}

void writeProc(const char* path, const std::string& text) {
  const base::UniqueFd fd(::open(path, O_WRONLY | O_CLOEXEC));
  require(fd.bValid() && ::write(fd.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size()), path);
}

void enterNamespaces() {
  const uid_t uid = ::geteuid();
  const gid_t gid = ::getegid();
  const int common = CLONE_NEWNS | CLONE_NEWIPC | CLONE_NEWNET | CLONE_NEWUTS;
  require(::unshare(uid == 0 ? common : common | CLONE_NEWUSER) == 0, "unshare");
  if (uid != 0) {
    writeProc("/proc/self/setgroups", "deny");
    writeProc("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1");
    writeProc("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1");
  }
  require(::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "make mounts private");
}

/// A directory to build the new root on that hides nothing that the tests need.
std::string stagingDirectory(const std::vector<std::string>& needed) {
  for (const char* candidate : {"/mnt", "/srv", "/media", "/opt", "/var"}) {
    const std::string prefix = std::string(candidate) + "/";
    const bool hides = std::any_of(needed.begin(), needed.end(),
                                   [&](const std::string& path) { return (path + "/").rfind(prefix, 0) == 0; });
    if (!hides && fs::is_directory(candidate)) return candidate;
  }
  require(false, "find a directory to build on");
  return {};
}

void bindInto(const std::string& root, const std::string& path) {
  const fs::path target = root + path;
  if (fs::is_symlink(path)) {
    fs::create_symlink(fs::read_symlink(path), target);
    return;
  }
  if (!fs::exists(path)) return;
  fs::create_directories(target.parent_path());
  if (fs::is_directory(path)) {
    fs::create_directories(target);
  } else {
    std::ofstream(target).flush();
  }
  require(::mount(path.c_str(), target.c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0, "bind " + path);
}

void enterNewRoot() {
  const std::string binary = fs::read_symlink("/proc/self/exe").parent_path();
  const std::string source = fs::canonical(fs::path(KELT_SOURCE_DIR));
  const std::string root = stagingDirectory({binary, source});
  require(::mount("device", root.c_str(), "tmpfs", 0, "mode=755") == 0, "mount the root");
  for (const char* path : {"/usr", "/bin", "/sbin", "/lib", "/lib32", "/lib64", "/libx32", "/dev", "/proc", "/etc/ssl",
                           "/etc/ld.so.cache", "/etc/alternatives", "/etc/passwd", "/etc/group"}) {
    bindInto(root, path);
  }
  bindInto(root, source);
  if ((binary + "/").rfind(source + "/", 0) != 0) bindInto(root, binary);
  require(::chdir(root.c_str()) == 0, "enter the root");
  require(::syscall(SYS_pivot_root, ".", ".") == 0, "pivot_root");
  require(::umount2(".", MNT_DETACH) == 0, "leave the old root");
  require(::chdir("/") == 0, "chdir /");
}

void emptyDirectory(const std::string& path, mode_t mode) {
  std::error_code ignored;
  fs::remove_all(path, ignored);
  fs::create_directories(path);
  require(::chmod(path.c_str(), mode) == 0, "chmod " + path);
}

/// Sends a standard descriptor into memory while it lives.
class Capture {
 public:
  explicit Capture(int fd) : m_fd(fd), m_kept(::dup(fd)), m_memory(::memfd_create("output", MFD_CLOEXEC)) {
    require(::dup2(m_memory.get(), fd) == fd, "dup2");
  }
  std::string end() {
    require(::dup2(m_kept.get(), m_fd) == m_fd, "dup2");
    std::string text(static_cast<std::size_t>(::lseek(m_memory.get(), 0, SEEK_END)), '\0');
    const ssize_t got = ::pread(m_memory.get(), text.data(), text.size(), 0);
    require(got == static_cast<ssize_t>(text.size()), "read output");
    return text;
  }

 private:
  int m_fd;
  base::UniqueFd m_kept;
  base::UniqueFd m_memory;
};

}  // namespace

void enterPrivateDevice() {
  enterNamespaces();
  enterNewRoot();
  resetDevice();
}

void resetDevice() {
  while (!mounted().empty()) {
    ::umount2(mounted().back().c_str(), MNT_DETACH);
    mounted().pop_back();
  }
  emptyDirectory("/etc/orv.d", 0755);
  emptyDirectory("/opt/Quorvane", 0755);
  emptyDirectory("/run", 0755);
  emptyDirectory("/tmp", 01777);
}

void PrivateDevice::SetUp() {
  ASSERT_EQ(::chdir("/"), 0);
  resetDevice();
}

void putFile(const std::string& path, const std::string& content, mode_t mode) {
  fs::create_directories(fs::path(path).parent_path());
  std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
  require(::chmod(path.c_str(), mode) == 0, "make " + path);
}

void putDirectory(const std::string& path, mode_t mode) {
  fs::create_directories(path);
  require(::chmod(path.c_str(), mode) == 0, "make " + path);
}

std::string contentOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  EXPECT_TRUE(file.good()) << path << " cannot be read";
  return {std::istreambuf_iterator<char>(file), {}};
}

bool exists(const std::string& path) {
  return fs::exists(fs::symlink_status(path));
}

mode_t modeOf(const std::string& path) {
  struct stat info {};
  return ::lstat(path.c_str(), &info) == 0 ? info.st_mode & 07777U : 0;
}

std::vector<std::string> namesIn(const std::string& directory) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(directory))
    names.push_back(entry.path().filename());
  std::sort(names.begin(), names.end());
  return names;
}

void putForeignDirectory(const std::string& path) {
  putDirectory(path);
  if (::chown(path.c_str(), 65534, 65534) == 0) return;
  // A user namespace of one uid cannot give a file away, but what the machine's root owns is foreign in it.
  require(::mount("/usr/share/misc", path.c_str(), nullptr, MS_BIND, nullptr) == 0, "bind a foreign directory");
  mounted().push_back(path);
}

void mountSmall(const std::string& path, std::size_t bytes) {
  putDirectory(path);
  const std::string options = "mode=755,size=" + std::to_string(bytes);
  require(::mount("small", path.c_str(), "tmpfs", 0, options.c_str()) == 0, "mount a small file system");
  mounted().push_back(path);
}

void mountReadOnly(const std::string& path) {
  require(::mount(path.c_str(), path.c_str(), nullptr, MS_BIND, nullptr) == 0, "bind " + path);
  mounted().push_back(path);
  require(::mount(nullptr, path.c_str(), nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr) == 0,
          "make read-only " + path);
}

void unmount(const std::string& path) {
  require(::umount2(path.c_str(), MNT_DETACH) == 0, "unmount " + path);
  mounted().erase(std::remove(mounted().begin(), mounted().end(), path), mounted().end());
}

Output outputOf(const std::function<void()>& action) {
  Capture out(STDOUT_FILENO);
  Capture err(STDERR_FILENO);
  action();
  Output captured;
  captured.err = err.end();
  captured.out = out.end();
  return captured;
}

}  // namespace kelt::tests
