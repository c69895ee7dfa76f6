// An unpacking that is refused a system call, or killed, at every point where it changes something.

#include <cstdlib>
#include <filesystem>
#include <map>

#include "strace.h"
#include "support/private_device.h"

#include "base/sweep.h"

namespace kelt::tests {
namespace {

namespace fs = std::filesystem;

using Names = std::vector<std::string>;
using Tree = std::map<std::string, std::string>;

constexpr const char* kTarget = "/tmp/target";

/// Everything below the target: the content of files, where links lead, "directory".
Tree tree() {
  Tree found;
  for (const auto& entry : fs::recursive_directory_iterator(kTarget)) {
    const std::string name = entry.path().lexically_relative(kTarget);
    found[name] = entry.is_symlink()     ? "-> " + fs::read_symlink(entry.path()).string()
                  : entry.is_directory() ? "directory"
                                         : contentOf(entry.path());
  }
  return found;
}

/// Before: a file and a link that the archive replaces, a directory that it uses, and one file that it knows nothing
/// of.
const Tree kOld{{"harmless.txt", "old text"}, {"keys", "directory"}, {"keys/k.bin", "-> ../victim"}, {"victim", "old"}};
const Tree kNew{
    {"harmless.txt", "harmless"},   {"keys", "directory"}, {"keys/deep", "directory"}, {"keys/deep/er", "directory"},
    {"keys/deep/er/k.bin", "deep"}, {"keys/k.bin", "top"}, {"victim", "old"}};

const std::vector<Fault>& faults() {
  static const std::vector<Fault> all{
      {"openat", "EIO"},       {"openat", "EMFILE"}, {"openat", "EOPNOTSUPP"}, {"mkdirat", "ENOSPC"},
      {"mkdirat", "EEXIST"},   {"/fstatat", "EIO"},  {"getrandom", "ENOSYS"},  {"fchmod", "EPERM"},
      {"write", "ENOSPC"},     {"write", "EIO"},     {"linkat", "EIO"},        {"linkat", "EEXIST"},
      {"fsync", "EIO"},        {"renameat2", "EIO"}, {"renameat2", "ENOSPC"},  {"renameat2", "EINVAL"},
      {"renameat2", "ENOSYS"}, {"renameat", "EIO"},  {"renameat", "ENOSPC"},   {"rt_sigprocmask", "EINVAL"},
  };
  return all;
}

class UnzipUnderFaults : public PrivateDevice {
 protected:
  void SetUp() override {
    PrivateDevice::SetUp();
    const std::string script = KELT_TEST_DATA "/archives/make_archives.py";
    ASSERT_EQ(std::system(("/usr/bin/python3 -B " + script + " /archives").c_str()), 0);
    restore();
  }

  static void restore() {
    fs::remove_all(kTarget);
    putFile(std::string(kTarget) + "/harmless.txt", "old text", 0640);
    putFile(std::string(kTarget) + "/victim", "old");
    putDirectory(std::string(kTarget) + "/keys");
    fs::create_symlink("../victim", std::string(kTarget) + "/keys/k.bin");
  }

  static Ending unpackUnder(const Names& faults, const std::string& traced) {
    return runUnder("kelt_unzip_program", std::string("/archives/good/tree.zip ") + kTarget, faults, traced);
  }
};

TEST_F(UnzipUnderFaults, WithoutAFaultReplaces) {
  EXPECT_EQ(unpackUnder({}, "fsync").status, 0) << contentOf("/tmp/errors") << "strace is needed here";
  EXPECT_EQ(tree(), kNew);
}

TEST_F(UnzipUnderFaults, AnErrorOfAnyCallLeavesAllOfTheArchiveOrNothingOfIt) {
  for (const Fault& fault : faults()) {
    int points = 0;
    for (int n = 1; n < 200; ++n, ++points) {
      restore();
      const std::string point = fault.call + ":error=" + fault.error + ":when=" + std::to_string(n);
      const Ending ending = unpackUnder({"inject=" + point}, fault.call);
      if (!ending.bInjected) break;
      EXPECT_EQ(tree(), ending.status == 0 ? kNew : kOld) << point;
      EXPECT_EQ(modeOf("/tmp/target/harmless.txt"), ending.status == 0 ? 0600U : 0640U) << point;
    }
    EXPECT_GT(points, 0) << fault.call << " is never called";
  }
}

TEST_F(UnzipUnderFaults, AnErrorThatLastsLeavesAllOfTheArchiveOrNothingOfIt) {
  for (const Fault& fault : faults()) {
    if (fault.call == "renameat") continue;  // putting back is renaming too
    for (int n = 1; n < 200; ++n) {
      restore();
      const std::string point = fault.call + ":error=" + fault.error + ":when=" + std::to_string(n) + "+";
      const Ending ending = unpackUnder({"inject=" + point}, fault.call);
      if (!ending.bInjected) break;
      EXPECT_EQ(tree(), ending.status == 0 ? kNew : kOld) << point;
    }
  }
}

TEST_F(UnzipUnderFaults, WhereNoNamesAreExchangedTheOldFileIsKeptByASecondName) {
  for (const char* error : {"EINVAL", "ENOSYS"}) {
    restore();
    const Ending ending = unpackUnder({std::string("inject=renameat2:error=") + error}, "renameat2");
    EXPECT_TRUE(ending.bInjected);
    EXPECT_EQ(ending.status, 0);
    EXPECT_EQ(tree(), kNew);
  }
  for (int n = 1; n < 10; ++n) {
    restore();
    const std::string failing = "inject=renameat:error=EIO:when=" + std::to_string(n);
    const Ending ending = unpackUnder({"inject=renameat2:error=EINVAL", failing}, "renameat,renameat2");
    if (ending.status == 0) break;
    EXPECT_EQ(tree(), kOld) << failing;
  }
}

TEST_F(UnzipUnderFaults, DeathBeforeAnyCallLeavesOldFilesAndNewOnesAndWhatTheNextRunRemoves) {
  Names calls = callsOf(faults());
  calls.insert(calls.end(), {"close", "unlinkat"});
  for (const std::string& call : calls) {
    int points = 0;
    for (int n = 1; n < 200; ++n, ++points) {
      restore();
      const std::string point = call + ":signal=KILL:when=" + std::to_string(n);
      if (!unpackUnder({"inject=" + point}, call).bInjected) break;
      for (const auto& [name, old] : kOld) {
        const Tree now = tree();
        ASSERT_TRUE(now.contains(name)) << point << ": " << name;
        EXPECT_TRUE(now.at(name) == old || now.at(name) == kNew.at(name)) << point << ": " << name;
      }
      static_cast<void>(base::sweepDirectory(kTarget));
      EXPECT_EQ(unpackUnder({}, "fsync").status, 0) << point;
      Tree again = tree();
      // A link that was being replaced is none of our files.
      std::erase_if(again, [](const auto& entry) { return entry.second == "-> ../victim"; });
      EXPECT_EQ(again, kNew) << point;
    }
    EXPECT_GT(points, 0) << call << " is never called";
  }
}

TEST_F(UnzipUnderFaults, EachFileIsOnTheDiskBeforeAnyTakesItsNameAndEachDirectoryAfterwards) {
  const std::string trace = unpackUnder({"decode-fds=path"}, "fsync,renameat,renameat2,mkdirat,unlinkat").trace;
  const std::size_t firstName = trace.find("renameat");
  const std::size_t lastName = trace.rfind("renameat");
  const std::size_t firstRemoval = trace.find("unlinkat");
  ASSERT_NE(firstName, std::string::npos);
  int files = 0;
  for (std::size_t at = trace.find("fsync"); at < firstName; at = trace.find("fsync", at + 1))
    ++files;
  EXPECT_EQ(files, 3);
  for (const char* directory :
       {"/tmp/target>", "/tmp/target/keys>", "/tmp/target/keys/deep>", "/tmp/target/keys/deep/er>"}) {
    std::string synced = "fsync(";
    std::size_t at = trace.find(directory, lastName);
    while (at != std::string::npos && trace.compare(trace.rfind('\n', at) + 1, synced.size(), synced) != 0)
      at = trace.find(directory, at + 1);
    EXPECT_LT(at, firstRemoval) << directory << "\n" << trace;
  }
}

TEST_F(UnzipUnderFaults, ATerminationWaitsUntilAllIsDone) {
  for (const char* call : {"write", "linkat", "renameat2", "unlinkat"}) {
    restore();
    const Ending ending = unpackUnder({std::string("inject=") + call + ":signal=TERM:when=1"}, call);
    EXPECT_EQ(ending.status, -1) << call;
    EXPECT_EQ(tree(), kNew) << call;
  }
}

}  // namespace
}  // namespace kelt::tests
