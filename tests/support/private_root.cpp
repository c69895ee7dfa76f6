#include "support/private_root.h"

#include <algorithm>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <vector>

#include "support/require.h"

#include "base/unique_fd.h"

namespace fs = std::filesystem;

namespace kelt::tests {
namespace {

constexpr const char* kMark = "/checkout/.private-root";

/// The machine's files below /etc that programs need. They stand in /machine, as /etc itself is renewed for every test.
constexpr const char* kOfEtc[] = {"ssl", "ld.so.cache", "alternatives", "passwd", "group"};

/// A path as mountinfo spells it: blanks and the like are octal numbers after a backslash.
std::string unescaped(const std::string& text) {
  std::string path;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && i + 3 < text.size()) {
      path += static_cast<char>(std::stoi(text.substr(i + 1, 3), nullptr, 8));
      i += 3;
    } else {
      path += text[i];
    }
  }
  return path;
}

/// The mount points at `top` and below it.
std::vector<std::string> mountPointsBelow(const std::string& top) {
  std::vector<std::string> points;
  std::ifstream mounts("/proc/self/mountinfo");
  for (std::string line; std::getline(mounts, line);) {
    std::istringstream fields(line);
    std::string point;
    for (int i = 0; i < 5; ++i)
      fields >> point;
    point = unescaped(point);
    if ((point + "/").rfind(top + "/", 0) == 0) points.push_back(point);
  }
  return points;
}

/// Whether a mount can be reached by its path: another one may stand over it.
bool bReachable(const std::string& point) {
  struct statx info {};
  require(::statx(AT_FDCWD, point.c_str(), AT_NO_AUTOMOUNT | AT_SYMLINK_NOFOLLOW, 0, &info) == 0 || errno == ENOENT,
          "look at " + point);
  return (info.stx_attributes_mask & STATX_ATTR_MOUNT_ROOT) == 0 || (info.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
}

/// Makes all mounts at `top` and below it read-only. What else a mount does not allow stays so: a user namespace may
/// not loosen it.
void makeReadOnly(const std::string& top) {
  for (const std::string& point : mountPointsBelow(top)) {
    if (!bReachable(point)) continue;
    struct statvfs info {};
    require(::statvfs(point.c_str(), &info) == 0, "look at " + point);
    unsigned long flags = MS_REMOUNT | MS_BIND | MS_RDONLY;
    if ((info.f_flag & ST_NOSUID) != 0) flags |= MS_NOSUID;
    if ((info.f_flag & ST_NODEV) != 0) flags |= MS_NODEV;
    if ((info.f_flag & ST_NOEXEC) != 0) flags |= MS_NOEXEC;
    require(::mount(nullptr, point.c_str(), nullptr, flags, nullptr) == 0, "make " + point + " read-only");
  }
}

/// Shows `from` read-only at `to`, a new directory or file as `from` is one.
void bindReadOnly(const std::string& from, const std::string& to) {
  fs::create_directories(fs::path(to).parent_path());
  if (fs::is_directory(from)) {
    fs::create_directory(to);
  } else {
    std::ofstream(to).flush();
  }
  require(::mount(from.c_str(), to.c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0, "bind " + from);
  makeReadOnly(to);
}

/// The same for what the machine may have or not, a link being made anew.
void bindOfMachine(const std::string& from, const std::string& to) {
  if (fs::is_symlink(from)) {
    fs::create_symlink(fs::read_symlink(from), to);
  } else if (fs::exists(from)) {
    bindReadOnly(from, to);
  }
}

/// Devices that hold nothing of anybody, and terminals that only the tests have.
void makeDevices(const std::string& dev) {
  for (const char* name : {"null", "zero", "full", "random", "urandom", "tty"})
    bindReadOnly(std::string("/dev/") + name, dev + "/" + name);
  for (const char* name : {"pts", "shm"})
    fs::create_directory(dev + "/" + name);
  require(::mount("devpts", (dev + "/pts").c_str(), "devpts", MS_NOSUID | MS_NOEXEC,
                  "newinstance,ptmxmode=0666,mode=0620") == 0,
          "make terminals");
  require(::chmod((dev + "/shm").c_str(), 01777) == 0, "chmod /dev/shm");
  fs::create_symlink("pts/ptmx", dev + "/ptmx");
  fs::create_symlink("/proc/self/fd", dev + "/fd");
  for (const auto& [name, number] : {std::pair{"stdin", "0"}, std::pair{"stdout", "1"}, std::pair{"stderr", "2"}})
    fs::create_symlink(std::string("/proc/self/fd/") + number, dev + "/" + name);
}

/// A directory as a path that stays good when another file system comes to stand over the directory's own.
class Opened {
 public:
  explicit Opened(const std::string& path) : m_fd(::open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)) {
    require(m_fd.bValid(), "find " + path);
  }
  [[nodiscard]] std::string path() const { return "/proc/self/fd/" + std::to_string(m_fd.get()); }

 private:
  base::UniqueFd m_fd;
};

/// Mounts the new root where it hides nothing that is still to be bound by its path. Returns that place, or nothing
/// when the system refuses a /proc in it.
std::string mountRoot(bool bOwnProcesses) {
  for (const std::string place : {"/mnt", "/srv", "/media", "/var", "/tmp"}) {
    if (!fs::is_directory(place) || fs::is_symlink(place)) continue;
    require(::mount("device", place.c_str(), "tmpfs", 0, "mode=755") == 0, "mount the root");
    fs::create_directory(place + "/proc");
    if (!bOwnProcesses) return place;
    const unsigned long flags = MS_NOSUID | MS_NODEV | MS_NOEXEC | MS_RDONLY;
    return ::mount("proc", (place + "/proc").c_str(), "proc", flags, nullptr) == 0 ? place : std::string();
  }
  require(false, "find a directory to build on");
  return {};
}

void changeRoot(const std::string& root) {
  require(::chdir(root.c_str()) == 0, "enter the root");
  require(::syscall(SYS_pivot_root, ".", ".") == 0, "pivot_root");
  require(::umount2(".", MNT_DETACH) == 0, "leave the old root");
  require(::chdir("/") == 0, "chdir /");
}

void bindCheckout(const std::string& root, const Opened& build, const Opened& data) {
  bindReadOnly(build.path(), root + kPrivateBuild);
  bindReadOnly(data.path(), root + kPrivateData);
  std::ofstream(root + kMark).flush();
}

void bindProfiles(const std::string& root, const Opened& profiles) {
  const std::string to = root + kPrivateProfiles;
  fs::create_directory(to);
  require(::mount(profiles.path().c_str(), to.c_str(), nullptr, MS_BIND, nullptr) == 0, "bind " + to);
}

void renew(const std::string& place, const char* mode) {
  while (::umount2(place.c_str(), MNT_DETACH) == 0) {
  }
  fs::create_directory(place);
  require(::mount("device", place.c_str(), "tmpfs", 0, mode) == 0, "mount " + place);
}

}  // namespace

bool bOnPrivateRoot() {
  return fs::exists(kMark);
}

bool enterPrivateRoot(const RootPlan& plan) {
  const Opened build(plan.buildDirectory);
  const Opened data(plan.dataDirectory);
  std::optional<Opened> profiles;
  if (!plan.profiles.empty()) profiles.emplace(plan.profiles);
  const std::string root = mountRoot(plan.bOwnProcesses);
  if (root.empty()) return false;
  if (!plan.bOwnProcesses) bindReadOnly("/proc", root + "/proc");
  for (const char* path : {"/usr", "/bin", "/sbin", "/lib", "/lib32", "/lib64", "/libx32"})
    bindOfMachine(path, root + path);
  for (const char* name : kOfEtc)
    bindOfMachine(std::string("/etc/") + name, root + "/machine/etc/" + name);
  makeDevices(root + "/dev");
  bindCheckout(root, build, data);
  if (profiles) bindProfiles(root, *profiles);
  changeRoot(root);
  renewDevice();
  return true;
}

void renewDevice() {
  renew("/etc", "mode=755");
  renew("/opt", "mode=755");
  renew("/run", "mode=755");
  renew("/tmp", "mode=1777");
  for (const char* name : kOfEtc) {
    const std::string of = std::string("/machine/etc/") + name;
    if (fs::exists(of)) fs::create_symlink(of, std::string("/etc/") + name);
  }
  for (const char* directory : {"/etc/orv.d", "/opt/Quorvane"})
    require(::mkdir(directory, 0755) == 0 && ::chmod(directory, 0755) == 0, std::string("make ") + directory);
}

}  // namespace kelt::tests
