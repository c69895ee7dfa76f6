#include <filesystem>
#include <sstream>
#include <sys/xattr.h>
#include <unistd.h>

#include "strace.h"
#include "support/private_device.h"

#include "base/sweep.h"

namespace kelt::tests {
namespace {

namespace fs = std::filesystem;

using Names = std::vector<std::string>;

constexpr const char* kFile = "/tmp/d/f";
constexpr std::size_t kLength = 100'000;

const std::string& oldContent() {
  static const std::string content = "the old content\n";
  return content;
}

const std::string& newContent() {
  static const std::string content(kLength, 'n');
  return content;
}

/// The calls that a replacement is made of; each is made to fail in every way that it may.
const std::vector<Fault>& faults() {
  static const std::vector<Fault> all{
      {"openat", "ENOSPC"},      {"openat", "EIO"},     {"openat", "EMFILE"},         {"openat", "EDQUOT"},
      {"openat", "EOPNOTSUPP"},  {"readlinkat", "EIO"}, {"/fstatat", "EIO"},          {"getrandom", "ENOSYS"},
      {"fremovexattr", "EPERM"}, {"flistxattr", "EIO"}, {"fgetxattr", "EIO"},         {"fsetxattr", "ENOSPC"},
      {"fchmod", "EPERM"},       {"fchmod", "EIO"},     {"write", "ENOSPC"},          {"write", "EIO"},
      {"write", "EDQUOT"},       {"linkat", "EIO"},     {"linkat", "ENOSPC"},         {"linkat", "EEXIST"},
      {"fsync", "EIO"},          {"fsync", "ENOSPC"},   {"renameat", "EIO"},          {"renameat", "ENOSPC"},
      {"renameat", "EBUSY"},     {"renameat", "EXDEV"}, {"rt_sigprocmask", "EINVAL"},
  };
  return all;
}

class ReplaceUnderFaults : public PrivateDevice, public ::testing::WithParamInterface<const char*> {
 protected:
  void SetUp() override {
    PrivateDevice::SetUp();
    putFile("/tmp/source", newContent(), 0600);
    restore();
  }

  static bool bFresh() { return std::string(GetParam()).find("fresh") != std::string::npos; }
  static bool bNameless() { return std::string(GetParam()).find("without-proc") == std::string::npos; }

  /// Whether this way of writing a file makes that call at all.
  static bool bCalls(const std::string& call) {
    if (call == "linkat") return bNameless();
    return !bFresh() || (call.find("xattr") == std::string::npos && call != "readlinkat");
  }

  static void restore() {
    fs::remove_all("/tmp/d");
    putFile(kFile, oldContent(), 0640);
    ASSERT_EQ(::setxattr(kFile, "user.origin", "x", 1, 0), 0);
  }

  /// Writes the file with the given faults, each an argument of strace's option -e.
  static Ending replaceUnder(const Names& faults, const std::string& traced) {
    return runUnder("kelt_replace_program", std::string(GetParam()) + " " + kFile, faults, traced);
  }

  /// A file is there that is wholly the old or wholly the new one, attributes included.
  static void expectWhole(const std::string& point) {
    const std::string content = contentOf(kFile);
    EXPECT_TRUE(content == oldContent() || content == newContent()) << point << ": " << content.size() << " bytes";
    const bool bInherits = content == oldContent() || !bFresh();
    EXPECT_EQ(modeOf(kFile), bInherits ? 0640U : 0600U) << point;
    char value = 0;
    EXPECT_EQ(::getxattr(kFile, "user.origin", &value, 1), bInherits ? 1 : -1) << point;
    EXPECT_EQ(value, bInherits ? 'x' : 0) << point;
  }
};

INSTANTIATE_TEST_SUITE_P(Ways, ReplaceUnderFaults,
                         ::testing::Values("replace", "copy", "fresh", "without-proc replace", "without-proc copy",
                                           "without-proc fresh"),
                         [](const auto& way) {
                           std::string name = way.param;
                           std::erase_if(name, [](char c) { return c == ' ' || c == '-'; });
                           return name;
                         });

TEST_P(ReplaceUnderFaults, WithoutAFaultReplaces) {
  const Ending ending = replaceUnder({}, "fsync");
  EXPECT_EQ(ending.status, 0) << contentOf("/tmp/errors") << "strace is needed here";
  EXPECT_FALSE(ending.bInjected);
  EXPECT_TRUE(contentOf(kFile) == newContent());
  expectWhole("no fault");
  EXPECT_EQ(namesIn("/tmp/d"), Names{"f"});
}

TEST_P(ReplaceUnderFaults, AnErrorOfAnyCallLeavesOldOrNewContentAndNoTemporaryFile) {
  int reached = 0;
  for (const Fault& fault : faults()) {
    if (!bCalls(fault.call)) continue;
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

TEST_P(ReplaceUnderFaults, AnErrorThatLastsLeavesOldOrNewContentAndNoTemporaryFile) {
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

TEST_P(ReplaceUnderFaults, AFailureIsReportedAndOnlyTheLastSyncComesTooLateForTheOldContent) {
  for (const char* call : {"write", "fsync", "renameat", "fchmod", "linkat"}) {
    for (int n = 1; n < 100; ++n) {
      restore();
      const std::string point = std::string(call) + ":error=EIO:when=" + std::to_string(n);
      const Ending ending = replaceUnder({std::string("inject=") + point}, call);
      if (!ending.bInjected) break;
      EXPECT_EQ(ending.status, 1) << point;
      const bool bLastSync = std::string(call) == "fsync" && n == 2;
      EXPECT_TRUE(contentOf(kFile) == (bLastSync ? newContent() : oldContent())) << point;
    }
  }
}

TEST_P(ReplaceUnderFaults, WithoutFilesThatHaveNoNameItTakesOneFromTheStart) {
  int named = 0;
  for (int n = 1; n < 100; ++n) {
    restore();
    const std::string point = "openat:error=EOPNOTSUPP:when=" + std::to_string(n);
    const Ending ending = replaceUnder({"inject=" + point}, "openat");
    if (!ending.bInjected) break;
    const std::string& trace = ending.trace;
    const std::size_t refused = trace.find("O_TMPFILE, 0600) = -1 EOPNOTSUPP");
    if (refused == std::string::npos) continue;
    ++named;
    EXPECT_NE(trace.find("O_EXCL|O_NOFOLLOW|O_CLOEXEC, 0600) = ", refused), std::string::npos) << trace;
    EXPECT_TRUE(contentOf(kFile) == newContent());
    expectWhole(point);
  }
  EXPECT_EQ(named, 1);
}

TEST_P(ReplaceUnderFaults, DeathBeforeAnyCallLeavesOldOrNewContentAndWhatASweepRemoves) {
  Names calls = callsOf(faults());
  calls.emplace_back("close");
  for (const std::string& call : calls) {
    if (!bCalls(call)) continue;
    int points = 0;
    for (int n = 1; n < 100; ++n, ++points) {
      restore();
      const std::string point = call + ":signal=KILL:when=" + std::to_string(n);
      if (!replaceUnder({"inject=" + point}, call).bInjected) break;
      expectWhole(point);
      const Names left = namesIn("/tmp/d");
      for (const std::string& name : left) {
        EXPECT_EQ(modeOf("/tmp/d/" + name) & ~0640U, 0U) << point << ": others can read " << name;
      }
      // Without a name while it is written, a file is left only by a death between its naming and its renaming.
      if (bNameless() && call == "write") {
        EXPECT_EQ(left, Names{"f"}) << point;
      }
      EXPECT_EQ(base::sweepDirectory("/tmp/d").size(), left.size() - 1) << point;
      EXPECT_EQ(namesIn("/tmp/d"), Names{"f"}) << point;
    }
    EXPECT_GT(points, 0) << call << " is never called";
  }
}

TEST_P(ReplaceUnderFaults, AnOwnerThatCannotBeGivenIsAFailure) {
  // Where there is only one user, the file stays ours and nothing has to be given; nor does one that inherits nothing.
  const bool bForeign = ::chown(kFile, 12, 34) == 0 && !bFresh();
  const Ending ending = replaceUnder({"inject=fchown:error=EPERM"}, "fchown");
  EXPECT_EQ(ending.bInjected, bForeign);
  EXPECT_EQ(ending.status, bForeign ? 1 : 0);
  EXPECT_TRUE(contentOf(kFile) == (bForeign ? oldContent() : newContent()));
  EXPECT_EQ(namesIn("/tmp/d"), Names{"f"});
}

TEST_P(ReplaceUnderFaults, DataIsOnTheDiskBeforeTheNameIsAndTheModeBeforeTheData) {
  const Ending ending = replaceUnder({}, "fchmod,write,fsync,renameat,linkat");
  ASSERT_EQ(ending.status, 0);
  std::istringstream trace(ending.trace);
  Names calls;
  for (std::string line; std::getline(trace, line);) {
    if (line.find('(') == std::string::npos || line.front() == '+') continue;
    const std::string call = line.substr(0, line.find('('));
    if (calls.empty() || calls.back() != call) calls.push_back(call);  // the data goes in pieces
  }
  Names expected{"fchmod", "write", "linkat", "fsync", "renameat", "fsync"};
  if (!bNameless()) std::erase(expected, "linkat");
  EXPECT_EQ(calls, expected);
}

}  // namespace
}  // namespace kelt::tests
