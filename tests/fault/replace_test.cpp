#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "support/private_device.h"

namespace kelt::tests {
namespace {

namespace fs = std::filesystem;

using Names = std::vector<std::string>;

constexpr const char* kFile = "/tmp/d/f";
constexpr const char* kTrace = "/tmp/trace";
constexpr std::size_t kLength = 10'000;

const std::string& oldContent() {
  static const std::string content = "the old content\n";
  return content;
}

const std::string& newContent() {
  static const std::string content(kLength, 'n');
  return content;
}

/// How a replacement under strace ended.
struct Ending {
  int status = -1;         ///< exit status, or -1 after a signal
  bool bInjected = false;  ///< whether the fault was reached
};

/// Replaces the file with the given faults, each an argument of strace's option -e.
Ending replaceUnder(const Names& faults, const std::string& traced) {
  const std::string program = fs::read_symlink("/proc/self/exe").parent_path() / "kelt_replace_program";
  std::string command = "exec strace -qq -o " + std::string(kTrace) + " -e trace=" + traced;
  for (const std::string& fault : faults)
    command += " -e " + fault;
  command += " " + program + " " + kFile + " " + std::to_string(kLength) + " 2>/tmp/errors";
  // A sanitizer cannot look for leaks in a traced program.
  const int status = std::system(("ASAN_OPTIONS=detect_leaks=0 LSAN_OPTIONS=detect_leaks=0; "
                                  "export ASAN_OPTIONS LSAN_OPTIONS; " +
                                  command)
                                     .c_str());
  const std::string trace = contentOf(kTrace);
  Ending ending;
  ending.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  ending.bInjected =
      trace.find("(INJECTED)") != std::string::npos || trace.find("killed by SIGKILL") != std::string::npos;
  return ending;
}

/// The calls that a replacement is made of; each is made to fail in every way that it may.
struct Fault {
  std::string call;
  std::string error;
};

const std::vector<Fault>& faults() {
  static const std::vector<Fault> all{
      {"openat", "ENOSPC"},
      {"openat", "EIO"},
      {"openat", "EMFILE"},
      {"openat", "EDQUOT"},
      {"readlinkat", "EIO"},
      {"/fstatat", "EIO"},
      {"getrandom", "ENOSYS"},
      {"fremovexattr", "EPERM"},
      {"flistxattr", "EIO"},
      {"fgetxattr", "EIO"},
      {"fsetxattr", "ENOSPC"},
      {"fchmod", "EPERM"},
      {"fchmod", "EIO"},
      {"write", "ENOSPC"},
      {"write", "EIO"},
      {"write", "EDQUOT"},
      {"fsync", "EIO"},
      {"fsync", "ENOSPC"},
      {"renameat", "EIO"},
      {"renameat", "ENOSPC"},
      {"renameat", "EBUSY"},
      {"renameat", "EXDEV"},
      {"rt_sigprocmask", "EINVAL"},
  };
  return all;
}

class ReplaceUnderFaults : public PrivateDevice {
 protected:
  void SetUp() override {
    PrivateDevice::SetUp();
    restore();
  }

  static void restore() {
    fs::remove_all("/tmp/d");
    putFile(kFile, oldContent(), 0640);
    ASSERT_EQ(::setxattr(kFile, "user.origin", "x", 1, 0), 0);
  }

  /// A file is there that is wholly the old or wholly the new one, attributes included.
  static void expectWhole(const std::string& point) {
    const std::string content = contentOf(kFile);
    EXPECT_TRUE(content == oldContent() || content == newContent()) << point << ": " << content.size() << " bytes";
    EXPECT_EQ(modeOf(kFile), 0640U) << point;
    char value = 0;
    EXPECT_EQ(::getxattr(kFile, "user.origin", &value, 1), 1) << point;
    EXPECT_EQ(value, 'x') << point;
  }
};

TEST_F(ReplaceUnderFaults, WithoutAFaultReplaces) {
  const Ending ending = replaceUnder({}, "fsync");
  EXPECT_EQ(ending.status, 0) << contentOf("/tmp/errors") << "strace is needed here";
  EXPECT_FALSE(ending.bInjected);
  EXPECT_EQ(contentOf(kFile), newContent());
  expectWhole("no fault");
}

TEST_F(ReplaceUnderFaults, AnErrorOfAnyCallLeavesOldOrNewContentAndNoTemporaryFile) {
  int reached = 0;
  for (const Fault& fault : faults()) {
    int points = 0;
    for (int n = 1; n < 100; ++n, ++points) {
      restore();
      const std::string point = fault.call + ":error=" + fault.error + ":when=" + std::to_string(n);
      const Ending ending = replaceUnder({"inject=" + point}, fault.call);
      if (!ending.bInjected) break;
      expectWhole(point);
      EXPECT_EQ(namesIn("/tmp/d"), Names{"f"}) << point;
      EXPECT_TRUE(ending.status != 0 || contentOf(kFile) == newContent()) << point;
    }
    EXPECT_GT(points, 0) << fault.call << " is never called";
    reached += points;
  }
  RecordProperty("points", reached);
}

TEST_F(ReplaceUnderFaults, AnErrorThatLastsLeavesOldOrNewContentAndNoTemporaryFile) {
  for (const Fault& fault : faults()) {
    for (int n = 1; n < 100; ++n) {
      restore();
      const std::string point = fault.call + ":error=" + fault.error + ":when=" + std::to_string(n) + "+";
      if (!replaceUnder({"inject=" + point}, fault.call).bInjected) break;
      expectWhole(point);
      EXPECT_EQ(namesIn("/tmp/d"), Names{"f"}) << point;
    }
  }
}

TEST_F(ReplaceUnderFaults, AFailureIsReportedAndOnlyTheLastSyncComesTooLateForTheOldContent) {
  for (const char* call : {"write", "fsync", "renameat", "fchmod"}) {
    for (int n = 1; n < 100; ++n) {
      restore();
      const std::string point = std::string(call) + ":error=EIO:when=" + std::to_string(n);
      const Ending ending = replaceUnder({std::string("inject=") + point}, call);
      if (!ending.bInjected) break;
      EXPECT_EQ(ending.status, 1) << point;
      const bool bLastSync = std::string(call) == "fsync" && n == 2;
      EXPECT_EQ(contentOf(kFile), bLastSync ? newContent() : oldContent()) << point;
    }
  }
}

TEST_F(ReplaceUnderFaults, DeathBeforeAnyCallLeavesOldOrNewContent) {
  Names calls;
  for (const Fault& fault : faults()) {
    if (std::find(calls.begin(), calls.end(), fault.call) == calls.end()) calls.push_back(fault.call);
  }
  calls.emplace_back("close");
  for (const std::string& call : calls) {
    int points = 0;
    for (int n = 1; n < 100; ++n, ++points) {
      restore();
      const std::string point = call + ":signal=KILL:when=" + std::to_string(n);
      if (!replaceUnder({"inject=" + point}, call).bInjected) break;
      expectWhole(point);
      for (const std::string& name : namesIn("/tmp/d")) {
        EXPECT_EQ(modeOf("/tmp/d/" + name) & ~0640U, 0U) << point << ": others can read " << name;
      }
    }
    EXPECT_GT(points, 0) << call << " is never called";
  }
}

TEST_F(ReplaceUnderFaults, AnOwnerThatCannotBeGivenIsAFailure) {
  // Where there is only one user, the file stays ours and nothing has to be given.
  const bool bForeign = ::chown(kFile, 12, 34) == 0;
  const Ending ending = replaceUnder({"inject=fchown:error=EPERM"}, "fchown");
  EXPECT_EQ(ending.bInjected, bForeign);
  EXPECT_EQ(ending.status, bForeign ? 1 : 0);
  EXPECT_EQ(contentOf(kFile), bForeign ? oldContent() : newContent());
  EXPECT_EQ(namesIn("/tmp/d"), Names{"f"});
}

TEST_F(ReplaceUnderFaults, DataIsOnTheDiskBeforeTheNameIsAndTheModeBeforeTheData) {
  ASSERT_EQ(replaceUnder({}, "fchmod,write,fsync,renameat").status, 0);
  std::ifstream trace(kTrace);
  Names calls;
  for (std::string line; std::getline(trace, line);) {
    if (line.find('(') != std::string::npos && line.front() != '+') calls.push_back(line.substr(0, line.find('(')));
  }
  EXPECT_EQ(calls, (Names{"fchmod", "write", "fsync", "renameat", "fsync"}));
}

}  // namespace
}  // namespace kelt::tests
