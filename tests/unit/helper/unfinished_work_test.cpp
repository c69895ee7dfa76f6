#include "helper/unfinished_work.h"

#include <filesystem>
#include <optional>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/private_device.h"

namespace kelt::helper {
namespace {

using tests::contentOf;
using tests::exists;
using tests::namesIn;
using tests::putDirectory;
using tests::putFile;
using Names = std::vector<std::string>;

const std::string kData = "/opt/Quorvane/orv/scratch";
const std::string kMark = kData + "/unfinished-work";
const std::string kLog = kData + "/logs/keltcfg.log";
const std::string kUnmanaged = "work=unmanaged-switch\n";

class UnfinishedWork : public tests::PrivateDevice {
 protected:
  void SetUp() override {
    PrivateDevice::SetUp();
    putDirectory(kData);
    putDirectory(kData + "/logs");
  }

  static bool bLogged(const std::string& text) {
    return exists(kLog) && contentOf(kLog).find(text) != std::string::npos;
  }

  /// That what stands there is no mark, for this reason, and is gone.
  static void expectRefused(const std::string& why) {
    EXPECT_FALSE(WorkMark().found()) << why;
    EXPECT_EQ(namesIn(kData), Names{"logs"}) << why;
    EXPECT_TRUE(bLogged("\tE\t")) << why;
    EXPECT_TRUE(bLogged("Removed, being no mark of unfinished work: " + kMark + why + "\n")) << why;
  }
};

TEST_F(UnfinishedWork, IsMarkedUntilItIsDone) {
  {
    WorkMark mark;
    EXPECT_FALSE(mark.found());
    EXPECT_FALSE(exists(kMark)) << "before it is begun";
    mark.begin({Work::kUnmanagedSwitch, {}});
    EXPECT_EQ(contentOf(kMark), kUnmanaged);
    EXPECT_EQ(tests::modeOf(kMark), 0600U);
    mark.begin({Work::kKeyImport, "a=1\nb=2\n"});
    EXPECT_EQ(contentOf(kMark), "work=key-import\na=1\nb=2\n");
  }
  EXPECT_EQ(namesIn(kData), Names{"logs"});
  EXPECT_FALSE(exists(kLog));
}

TEST_F(UnfinishedWork, IsDoneForTheMarkToo) {
  WorkMark mark;
  mark.begin({Work::kUnmanagedSwitch, {}});
  mark.end();
  EXPECT_FALSE(exists(kMark));
  putFile(kMark, "of somebody else by now");
  EXPECT_FALSE(mark.found());
}

TEST_F(UnfinishedWork, IsFoundByTheNextRun) {
  putFile(kMark, "work=key-import\na=1\n", 0600);
  {
    const WorkMark mark;
    ASSERT_TRUE(mark.found());
    EXPECT_EQ(mark.found()->work, Work::kKeyImport);
    EXPECT_EQ(mark.found()->plan, "a=1\n");
  }
  EXPECT_TRUE(exists(kMark)) << "merely looked at";
  {
    WorkMark mark;
    EXPECT_FALSE(mark.adopt(Work::kUnmanagedSwitch));
  }
  EXPECT_TRUE(exists(kMark)) << "not of that kind";
  {
    WorkMark mark;
    EXPECT_TRUE(mark.adopt(Work::kKeyImport));
    EXPECT_TRUE(exists(kMark)) << "until it is finished";
  }
  EXPECT_FALSE(exists(kMark));
}

TEST_F(UnfinishedWork, MayBeReadableByOthers) {
  putFile(kMark, kUnmanaged, 0644);
  EXPECT_TRUE(WorkMark().found());
}

TEST_F(UnfinishedWork, IsInTheDataDirectoryThatTheAgentNames) {
  putDirectory("/opt/Quorvane/data");
  putFile("/etc/orv.d/ZENTORAGENT3000/config.xml",
          "<Configuration><FrameworkDataDirectory>/opt/Quorvane/data</FrameworkDataDirectory></Configuration>");
  WorkMark mark;
  mark.begin({Work::kUnmanagedSwitch, {}});
  EXPECT_EQ(contentOf("/opt/Quorvane/data/unfinished-work"), kUnmanaged);
  EXPECT_FALSE(exists(kMark));
}

TEST_F(UnfinishedWork, IsNotToldByAFileThatOthersMayHaveWritten) {
  for (const mode_t mode : {0620U, 0602U}) {
    putFile(kMark, kUnmanaged, mode);
    expectRefused(" can be written by others");
  }
}

TEST_F(UnfinishedWork, IsNotToldByWhatIsNoMark) {
  for (const std::string text : {"", "work=unmanaged-switch", "work=unmanaged-switch \n", "work=other\n", "x\n",
                                 " work=key-import\n", "WORK=key-import\n"}) {
    putFile(kMark, text, 0600);
    expectRefused(" is no mark of unfinished work");
  }
}

TEST_F(UnfinishedWork, IsToldInFourKibibytes) {
  putFile(kMark, kUnmanaged + std::string(4096 - kUnmanaged.size(), 'x'), 0600);
  EXPECT_TRUE(WorkMark().found());
  putFile(kMark, kUnmanaged + std::string(4097 - kUnmanaged.size(), 'x'), 0600);
  expectRefused(": over 4096 bytes");
}

TEST_F(UnfinishedWork, IsNotToldByALink) {
  putFile("/opt/elsewhere", kUnmanaged, 0600);
  ASSERT_EQ(::symlink("/opt/elsewhere", kMark.c_str()), 0);
  expectRefused(" is not a regular file");
  EXPECT_EQ(contentOf("/opt/elsewhere"), kUnmanaged);
}

TEST_F(UnfinishedWork, IsNotToldByAFileWithAnotherName) {
  putFile("/opt/Quorvane/elsewhere", kUnmanaged, 0600);
  ASSERT_EQ(::link("/opt/Quorvane/elsewhere", kMark.c_str()), 0);
  expectRefused(" has other names");
  EXPECT_EQ(contentOf("/opt/Quorvane/elsewhere"), kUnmanaged);
}

TEST_F(UnfinishedWork, IsNotToldByAPipe) {
  ASSERT_EQ(::mkfifo(kMark.c_str(), 0600), 0);
  expectRefused(" is not a regular file");
}

TEST_F(UnfinishedWork, IsNotToldByAFileOfSomebodyElse) {
  putFile(kMark, kUnmanaged, 0600);
  // A user namespace of one uid cannot give a file away, but what the machine's root owns is foreign in it.
  const bool bGiven = ::chown(kMark.c_str(), 65534, 65534) == 0;
  ASSERT_TRUE(bGiven || ::mount("/usr/bin/env", kMark.c_str(), nullptr, MS_BIND, nullptr) == 0);
  EXPECT_FALSE(WorkMark().found());
  EXPECT_TRUE(bLogged(kMark + " belongs to somebody else\n"));
}

TEST_F(UnfinishedWork, GoesOnWithoutAMarkInThePlaceOfADirectory) {
  putDirectory(kMark);
  {
    WorkMark mark;
    EXPECT_FALSE(mark.found());
    EXPECT_TRUE(bLogged("No mark of unfinished work: " + kMark + " is not a regular file\n"));
    mark.begin({Work::kUnmanagedSwitch, {}});
    EXPECT_TRUE(bLogged("No mark of unfinished work could be made: " + kMark + " is a directory\n"));
  }
  EXPECT_TRUE(std::filesystem::is_directory(kMark));
}

TEST_F(UnfinishedWork, GoesOnWithoutAMarkOnAFullDisk) {
  std::filesystem::remove_all(kData);
  tests::mountSmall(kData, 16384);
  putDirectory(kData + "/logs");
  putFile(kData + "/full", std::string(16384, 'x'));
  {
    WorkMark mark;
    mark.begin({Work::kUnmanagedSwitch, {}});
    EXPECT_EQ(namesIn(kData), (Names{"full", "logs"}));
  }
  EXPECT_EQ(namesIn(kData), (Names{"full", "logs"}));
}

TEST_F(UnfinishedWork, GoesOnWithoutAMarkWhereThereIsNoDataDirectory) {
  std::filesystem::remove_all(kData);
  WorkMark mark;
  EXPECT_FALSE(mark.found());
  mark.begin({Work::kUnmanagedSwitch, {}});
  mark.end();
  EXPECT_FALSE(exists(kData));
}

/// Nothing can be opened while it lives.
class NoDescriptors {
 public:
  NoDescriptors() {
    ::getrlimit(RLIMIT_NOFILE, &m_usual);
    const rlimit none{0, m_usual.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &none);
  }
  NoDescriptors(const NoDescriptors&) = delete;
  NoDescriptors& operator=(const NoDescriptors&) = delete;
  ~NoDescriptors() { ::setrlimit(RLIMIT_NOFILE, &m_usual); }

 private:
  rlimit m_usual{};
};

TEST_F(UnfinishedWork, IsUnmarkedAgainAlsoWhereTheMarkCouldNotBeLookedForAtFirst) {
  std::optional<WorkMark> mark;
  {
    const NoDescriptors none;
    mark.emplace();
  }
  mark->begin({Work::kUnmanagedSwitch, {}});
  EXPECT_EQ(contentOf(kMark), kUnmanaged);
  mark->end();
  EXPECT_FALSE(exists(kMark));
}

TEST_F(UnfinishedWork, IsMarkedInPlaceOfAnythingThatStandsThere) {
  putFile("/opt/elsewhere", "kept", 0600);
  WorkMark mark;
  ASSERT_EQ(::symlink("/opt/elsewhere", kMark.c_str()), 0);
  mark.begin({Work::kUnmanagedSwitch, {}});
  EXPECT_FALSE(std::filesystem::is_symlink(kMark));
  EXPECT_EQ(contentOf(kMark), kUnmanaged);
  EXPECT_EQ(contentOf("/opt/elsewhere"), "kept");
}

}  // namespace
}  // namespace kelt::helper
