#include "support/private_device.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sched.h>
#include <sstream>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/bound_process.h"
#include "support/coverage.h"
#include "support/private_root.h"
#include "support/require.h"

#include "base/unique_fd.h"

namespace fs = std::filesystem;

namespace kelt::tests {
namespace {

constexpr int kNoProc = 98;      ///< the system refuses a /proc of the process namespace
constexpr int kSignalled = 128;  ///< with a signal's number added: what ended the tests

void writeProc(const char* path, const std::string& text) {
  const base::UniqueFd fd(::open(path, O_WRONLY | O_CLOEXEC));
  require(fd.bValid() && ::write(fd.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size()), path);
}

void keepMountsToItself() {
  require(::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "make mounts private");
}

void enterNamespaces(bool bOwnProcesses) {
  const uid_t uid = ::geteuid();
  const gid_t gid = ::getegid();
  const int common = CLONE_NEWNS | CLONE_NEWIPC | CLONE_NEWNET | CLONE_NEWUTS | (bOwnProcesses ? CLONE_NEWPID : 0);
  // Root of a container may lack the right; then a user namespace gives it, as to anybody.
  if (uid != 0 || ::unshare(common) != 0) {
    require(::unshare(common | CLONE_NEWUSER) == 0, "unshare");
    writeProc("/proc/self/setgroups", "deny");
    writeProc("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1");
    writeProc("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1");
  }
  keepMountsToItself();
}

/// Whatever runs the tests may ignore signals or block them (nohup, a job in the background); what is tested would take
/// that over.
void hearSignals() {
  for (const int number : {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGPIPE})
    require(::signal(number, SIG_DFL) != SIG_ERR, "hear signals");
  sigset_t none;
  ::sigemptyset(&none);
  require(::sigprocmask(SIG_SETMASK, &none, nullptr) == 0, "hear signals");
}

/// The status to end with for a child that is waited for.
int statusAfter(pid_t child) {
  require(child > 0, "fork");
  const int status = waitStatusOf(child);
  return WIFSIGNALED(status) ? kSignalled + WTERMSIG(status) : WEXITSTATUS(status);
}

/// Where this program is and what belongs to it.
RootPlan planFor(const fs::path& program, bool bOwnProcesses) {
  RootPlan plan;
  plan.buildDirectory = program.parent_path();
  plan.dataDirectory = plan.buildDirectory + "/" KELT_DATA_FROM_BUILD;
  plan.profiles = profileDirectory(plan.buildDirectory);
  plan.bOwnProcesses = bOwnProcesses;
  return plan;
}

/// Starts this program anew from where the private root has it. Unlike after a fork alone, it is then, to itself and to
/// all that it starts, the program of that place.
[[noreturn]] void becomeRunner(const fs::path& program, char** arguments) {
  sendProfilesTo(kPrivateProfiles);
  std::string path = std::string(kPrivateBuild) + "/" + program.filename().string();
  arguments[0] = path.data();  // by which death tests start it once more
  ::execv(path.c_str(), arguments);
  require(false, "start " + path);
  std::abort();
}

/// Builds the device and runs the tests there, as the first process of its namespace or without one. What is left
/// running at the end goes with that namespace.
int superviseTests(const fs::path& program, char** arguments, bool bOwnProcesses) {
  ::umask(022);
  if (!enterPrivateRoot(planFor(program, bOwnProcesses))) return kNoProc;
  const pid_t runner = forkBound();
  if (runner == 0) becomeRunner(program, arguments);
  return statusAfter(runner);
}

/// Runs the tests in new namespaces. Returns their status, or kNoProc.
int runInNamespaces(const fs::path& program, char** arguments, bool bOwnProcesses) {
  const pid_t child = forkBound();
  if (child != 0) return statusAfter(child);
  enterNamespaces(bOwnProcesses);
  if (!bOwnProcesses) ::_exit(superviseTests(program, arguments, false));
  const pid_t first = forkBound();
  if (first == 0) ::_exit(superviseTests(program, arguments, true));
  ::_exit(statusAfter(first));
}

/// Ends this process as the tests ended.
[[noreturn]] void endWith(int status) {
  if (status > kSignalled) {
    const rlimit none{0, 0};
    ::setrlimit(RLIMIT_CORE, &none);  // theirs is enough
    static_cast<void>(std::signal(status - kSignalled, SIG_DFL));
    static_cast<void>(::raise(status - kSignalled));
  }
  ::_exit(status);
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

void enterPrivateDevice(char** arguments) {
  if (bOnPrivateRoot()) {
    hearSignals();
    // A death test starts the program from within a test, whose device must not change by that.
    require(::unshare(CLONE_NEWNS) == 0, "unshare");
    keepMountsToItself();
    renewDevice();
    return;
  }
  const fs::path program = fs::read_symlink("/proc/self/exe");
  std::fflush(nullptr);
  int status = runInNamespaces(program, arguments, true);
  if (status == kNoProc) status = runInNamespaces(program, arguments, false);
  linkProfiles(program.parent_path());
  endWith(status);
}

void refuseOutputFiles() {
  const std::string output = GTEST_FLAG_GET(output);
  const std::string file = output.substr(std::min(output.find(':'), output.size()));
  if (output.empty() || file == ":/dev/stdout" || file == ":/dev/stderr") return;
  std::fprintf(stderr,
               "private device: --gtest_output=%s: a test program cannot write a file of this machine.\n"
               "Its results are on standard output; --gtest_output=xml:/dev/stderr writes them apart.\n",
               output.c_str());
  std::exit(99);
}

void resetDevice() {
  renewDevice();
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
  std::ostringstream content;
  content << file.rdbuf();
  return content.str();
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
}

void mountSmall(const std::string& path, std::size_t bytes) {
  putDirectory(path);
  const std::string options = "mode=755,size=" + std::to_string(bytes);
  require(::mount("small", path.c_str(), "tmpfs", 0, options.c_str()) == 0, "mount a small file system");
}

void mountReadOnly(const std::string& path) {
  require(::mount(path.c_str(), path.c_str(), nullptr, MS_BIND, nullptr) == 0, "bind " + path);
  require(::mount(nullptr, path.c_str(), nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr) == 0,
          "make read-only " + path);
}

void unmount(const std::string& path) {
  require(::umount2(path.c_str(), MNT_DETACH) == 0, "unmount " + path);
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
