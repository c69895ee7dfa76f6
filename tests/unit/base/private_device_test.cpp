// The device that the unit tests run on: what the other tests rely on, and what the machine relies on.

#include "support/private_device.h"

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

#include "support/child.h"
#include "support/private_root.h"

#include "base/unique_fd.h"

namespace kelt::tests {
namespace {

using Device = PrivateDevice;
using Names = std::vector<std::string>;

/// The errno of making a file in a directory; 0 when it could be made.
int errnoOfMaking(const std::string& directory) {
  return ::open((directory + "/made").c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0600) < 0 ? errno : 0;
}

TEST_F(Device, ShowsTheDirectoryOfTheProgramAndTheTestDataReadOnly) {
  for (const char* path : {kPrivateBuild, kPrivateData, "/usr", "/machine/etc/ssl"})
    EXPECT_EQ(errnoOfMaking(path), EROFS) << path;
  EXPECT_TRUE(exists(std::string(kPrivateBuild) + "/kelt_test_base"));
  EXPECT_EQ(std::string(KELT_TEST_DATA), kPrivateData);
  EXPECT_TRUE(exists(KELT_TEST_DATA "/keys"));
}

TEST_F(Device, HasNoSignalIgnoredOrBlocked) {
  sigset_t blocked;
  ASSERT_EQ(::sigprocmask(SIG_SETMASK, nullptr, &blocked), 0);
  for (const int number : {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGPIPE}) {
    struct sigaction action {};
    ASSERT_EQ(::sigaction(number, nullptr, &action), 0);
    EXPECT_EQ(action.sa_handler, SIG_DFL) << number;
    EXPECT_EQ(::sigismember(&blocked, number), 0) << number;
  }
}

TEST_F(Device, NorWhenItsCallerIgnoresOrBlocksThem) {
  Child deaf([] {
    sigset_t blocked;
    ::sigemptyset(&blocked);
    ::sigaddset(&blocked, SIGTERM);
    ::sigprocmask(SIG_BLOCK, &blocked, nullptr);
    for (const int number : {SIGHUP, SIGINT, SIGQUIT})
      ::signal(number, SIG_IGN);
    ::execl("/proc/self/exe", "kelt_test_base", "--gtest_filter=Device.HasNoSignalIgnoredOrBlocked", "--gtest_brief=1",
            static_cast<char*>(nullptr));
    return 127;
  });
  EXPECT_EQ(deaf.exitStatus(), 0);
}

TEST_F(Device, ShowsNothingElseOfTheCheckout) {
  EXPECT_EQ(namesIn("/checkout"), (Names{".private-root", "build", "data"}));
}

/// Whether a line of mountinfo is of a file system that only this program has.
bool bOfThisProgram(const std::string& type, const std::string& source) {
  return type == "devpts" || (type == "tmpfs" && (source == "device" || source == "install"));
}

TEST_F(Device, HasNoMountOfTheMachineThatCanBeWrittenTo) {
  std::ifstream mounts("/proc/self/mountinfo");
  int seen = 0;
  for (std::string line; std::getline(mounts, line); ++seen) {
    std::istringstream before(line);
    std::string point;
    std::string options;
    for (int i = 0; i < 5; ++i)
      before >> point;
    before >> options;
    std::istringstream after(line.substr(line.find(" - ") + 3));
    std::string type;
    std::string source;
    after >> type >> source;
    EXPECT_TRUE(options.starts_with("ro,") || options == "ro" || bOfThisProgram(type, source)) << line;
  }
  EXPECT_GT(seen, 10);
}

TEST_F(Device, HasNoDeviceOfTheMachineThatHoldsAnything) {
  EXPECT_EQ(namesIn("/dev"), (Names{"fd", "full", "null", "ptmx", "pts", "random", "shm", "stderr", "stdin", "stdout",
                                    "tty", "urandom", "zero"}));
  EXPECT_NE(::chmod("/dev/null", 0600), 0);
}

TEST_F(Device, IsEmptyAndHasTheModesOfADevice) {
  for (const char* path : {"/etc", "/etc/orv.d", "/opt", "/opt/Quorvane", "/run"})
    EXPECT_EQ(modeOf(path), 0755U) << path;
  EXPECT_EQ(modeOf("/tmp"), 01777U);
  for (const char* path : {"/etc/orv.d", "/opt/Quorvane", "/run", "/tmp"})
    EXPECT_EQ(namesIn(path), Names{}) << path;
}

TEST_F(Device, IsRenewedWhateverStandsOrIsMountedThere) {
  putFile("/opt/Quorvane/f", "");
  putFile("/etc/other", "");
  putFile("/tmp/d/f", "");
  mountReadOnly("/tmp/d");
  mountSmall("/tmp/small", 4096);
  mountReadOnly("/run");
  resetDevice();
  for (const char* path : {"/etc/orv.d", "/opt/Quorvane", "/run", "/tmp"})
    EXPECT_EQ(namesIn(path), Names{}) << path;
  EXPECT_FALSE(exists("/etc/other"));
  EXPECT_EQ(errnoOfMaking("/run"), 0);
}

TEST_F(Device, IsRenewedWithoutARemovalOfWhatIsMountedThere) {
  putFile("/srv/bound/kept", "kept");
  putDirectory("/tmp/bound");
  ASSERT_EQ(std::system("mount -n --bind /srv/bound /tmp/bound"), 0);
  ASSERT_EQ(contentOf("/tmp/bound/kept"), "kept");
  resetDevice();
  EXPECT_EQ(contentOf("/srv/bound/kept"), "kept");
}

TEST_F(Device, CannotChangeTheMachineThroughProc) {
  EXPECT_EQ(::open("/proc/self/comm", O_WRONLY | O_CLOEXEC), -1);
  EXPECT_EQ(errno, EROFS);
}

TEST_F(Device, SeesNoProcessOfTheMachineWhereItHasProcessesOfItsOwn) {
  const bool bOwn = ::getppid() == 1;  // the one that looks after all others; not all systems allow the namespace
  EXPECT_EQ(bOwn, contentOf("/proc/1/cmdline").find("kelt_test_base") != std::string::npos);
  if (!bOwn) return;
  for (const std::string& name : namesIn("/proc"))
    EXPECT_TRUE(name.size() < 5 || name.find_first_not_of("0123456789") != std::string::npos) << name;
}

TEST_F(Device, ChildrenEndWithTheirParent) {
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  const base::UniqueFd reader(ends[0]);
  base::UniqueFd writer(ends[1]);
  Child parent([] {
    const Child child([] {
      while (true)
        ::pause();
      return 0;
    });
    return ::raise(SIGKILL);
  });
  parent.wait();
  writer.reset();
  char byte = 0;
  EXPECT_EQ(::read(reader.get(), &byte, 1), 0) << "all who had the other end are gone";
}

}  // namespace
}  // namespace kelt::tests
