#include "base/file_replace.h"

#include <array>
#include <atomic>
#include <csignal>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

#include "support/child.h"
#include "support/private_device.h"

#include "base/file_read.h"
#include "base/unique_fd.h"

namespace kelt::base {
namespace {

using tests::contentOf;
using tests::modeOf;
using tests::namesIn;
using tests::putDirectory;
using tests::putFile;

using Names = std::vector<std::string>;

class ReplaceFile : public tests::PrivateDevice {
 protected:
  void SetUp() override {
    PrivateDevice::SetUp();
    putDirectory("/tmp/d");
  }
};

TEST_F(ReplaceFile, MakesANewFileThatOthersCannotRead) {
  ASSERT_TRUE(replaceFile("/tmp/d/f", "new").ok());
  EXPECT_EQ(contentOf("/tmp/d/f"), "new");
  EXPECT_EQ(modeOf("/tmp/d/f"), 0600U);
  EXPECT_EQ(namesIn("/tmp/d"), Names{"f"});
}

TEST_F(ReplaceFile, GivesANewFileExactlyTheStatedModeWhateverTheUmask) {
  for (const mode_t mask : {0U, 077U, 0777U}) {
    const mode_t before = ::umask(mask);
    EXPECT_TRUE(replaceFile("/tmp/d/f", "x", NewFileAttributes{0644}).ok());
    ::umask(before);
    EXPECT_EQ(modeOf("/tmp/d/f"), 0644U);
    ::unlink("/tmp/d/f");
  }
}

TEST_F(ReplaceFile, GivesANewFileTheAttributesOfAnother) {
  putFile("/tmp/other", "x", 0640);
  const bool bGiven = ::chown("/tmp/other", 12, 34) == 0;
  const UniqueFd other(::open("/tmp/other", O_RDONLY | O_CLOEXEC));
  ASSERT_EQ(::unlink("/tmp/other"), 0);
  ASSERT_TRUE(replaceFile("/tmp/d/f", "new", {.mode = 0604, .attributesOf = other.get()}).ok());
  struct stat info {};
  ASSERT_EQ(::stat("/tmp/d/f", &info), 0);
  EXPECT_EQ(info.st_mode & 07777U, 0640U);
  EXPECT_EQ(info.st_uid, bGiven ? 12U : 0U);
  EXPECT_EQ(info.st_gid, bGiven ? 34U : 0U);
}

TEST_F(ReplaceFile, PutsAnotherFileInPlaceOfTheOld) {
  putFile("/tmp/d/f", "a longer old content", 0640);
  ASSERT_EQ(::link("/tmp/d/f", "/tmp/d/other"), 0);
  ASSERT_TRUE(replaceFile("/tmp/d/f", "new", NewFileAttributes{0600}).ok());
  EXPECT_EQ(contentOf("/tmp/d/f"), "new");
  EXPECT_EQ(modeOf("/tmp/d/f"), 0640U) << "the mode for new files is not for this one";
  EXPECT_EQ(contentOf("/tmp/d/other"), "a longer old content");
  EXPECT_EQ(namesIn("/tmp/d"), (Names{"f", "other"}));
}

TEST_F(ReplaceFile, WritesAnEmptyFileAndOneOfManyBytes) {
  putFile("/tmp/d/f", "old");
  ASSERT_TRUE(replaceFile("/tmp/d/f", "").ok());
  EXPECT_EQ(contentOf("/tmp/d/f"), "");
  std::string many(3'000'000, '\0');
  many[2'999'999] = 'x';
  ASSERT_TRUE(replaceFile("/tmp/d/f", many).ok());
  EXPECT_EQ(contentOf("/tmp/d/f"), many);
}

TEST_F(ReplaceFile, TakesARelativePath) {
  ASSERT_EQ(::chdir("/tmp/d"), 0);
  ASSERT_TRUE(replaceFile("f", "new").ok());
  EXPECT_EQ(contentOf("/tmp/d/f"), "new");
}

TEST_F(ReplaceFile, TakesANameAsLongAsTheFileSystemDoes) {
  const std::string name(255, 'n');
  ASSERT_TRUE(replaceFile("/tmp/d/" + name, "one").ok());
  ASSERT_TRUE(replaceFile("/tmp/d/" + name, "two").ok());
  EXPECT_EQ(contentOf("/tmp/d/" + name), "two");
  EXPECT_EQ(namesIn("/tmp/d"), Names{name});
}

TEST_F(ReplaceFile, RefusesADirectoryAFifoAndASocket) {
  putDirectory("/tmp/d/dir");
  putFile("/tmp/d/dir/kept", "kept");
  ASSERT_EQ(::mkfifo("/tmp/d/fifo", 0600), 0);
  const UniqueFd listener(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{AF_UNIX, "/tmp/d/socket"};
  ASSERT_EQ(::bind(listener.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
  for (const char* name : {"dir", "fifo", "socket"}) {
    const auto done = replaceFile(std::string("/tmp/d/") + name, "new");
    ASSERT_FALSE(done.ok()) << name;
    EXPECT_EQ(done.error().kind, ErrorKind::kRefused) << name;
  }
  EXPECT_EQ(namesIn("/tmp/d"), (Names{"dir", "fifo", "socket"}));
  EXPECT_EQ(namesIn("/tmp/d/dir"), Names{"kept"});
}

TEST_F(ReplaceFile, RefusesAPathThatNamesNoFile) {
  EXPECT_EQ(replaceFile("", "new").error().kind, ErrorKind::kRefused);
  EXPECT_EQ(replaceFile("/tmp/d/f/", "new").error().kind, ErrorKind::kRefused);
  EXPECT_EQ(replaceFile("/", "new").error().kind, ErrorKind::kRefused);
  EXPECT_EQ(replaceFile("/tmp/d/..", "new").error().kind, ErrorKind::kRefused);
  EXPECT_EQ(namesIn("/tmp/d"), Names{});
}

TEST_F(ReplaceFile, TellsAMissingDirectory) {
  EXPECT_EQ(replaceFile("/tmp/none/f", "new").error().kind, ErrorKind::kNotFound);
  putFile("/tmp/d/f", "file");
  EXPECT_EQ(replaceFile("/tmp/d/f/below", "new").error().kind, ErrorKind::kNotFound);
}

TEST_F(ReplaceFile, FollowsALinkThatStaysALink) {
  putDirectory("/tmp/real");
  putFile("/tmp/real/f", "old", 0640);
  ASSERT_EQ(::symlink("../real/f", "/tmp/d/relative"), 0);
  ASSERT_EQ(::symlink("/tmp/d/relative", "/tmp/d/chain"), 0);
  ASSERT_TRUE(replaceFile("/tmp/d/chain", "new").ok());
  EXPECT_EQ(contentOf("/tmp/real/f"), "new");
  EXPECT_EQ(modeOf("/tmp/real/f"), 0640U);
  for (const char* link : {"/tmp/d/relative", "/tmp/d/chain"}) {
    struct stat info {};
    ASSERT_EQ(::lstat(link, &info), 0);
    EXPECT_TRUE(S_ISLNK(info.st_mode)) << link;
  }
  EXPECT_EQ(namesIn("/tmp/real"), Names{"f"});
  EXPECT_EQ(namesIn("/tmp/d"), (Names{"chain", "relative"}));
}

TEST_F(ReplaceFile, FollowsARelativeLinkFromWhereItStandsAndNotFromTheWorkingDirectory) {
  ASSERT_EQ(::symlink("target", "/tmp/d/link"), 0);
  ASSERT_EQ(::chdir("/tmp"), 0);
  ASSERT_TRUE(replaceFile("d/link", "new").ok());
  EXPECT_EQ(contentOf("/tmp/d/target"), "new");
  EXPECT_FALSE(tests::exists("/tmp/target"));
}

TEST_F(ReplaceFile, MakesTheFileThatADanglingLinkLeadsTo) {
  putDirectory("/tmp/real");
  ASSERT_EQ(::symlink("/tmp/real/f", "/tmp/d/link"), 0);
  ASSERT_TRUE(replaceFile("/tmp/d/link", "new", NewFileAttributes{0644}).ok());
  EXPECT_EQ(contentOf("/tmp/real/f"), "new");
  EXPECT_EQ(modeOf("/tmp/real/f"), 0644U);
}

TEST_F(ReplaceFile, LeavesALinkIntoAMissingDirectoryAlone) {
  ASSERT_EQ(::symlink("/tmp/none/f", "/tmp/d/link"), 0);
  EXPECT_EQ(replaceFile("/tmp/d/link", "new").error().kind, ErrorKind::kNotFound);
  EXPECT_EQ(namesIn("/tmp/d"), Names{"link"});
}

TEST_F(ReplaceFile, FailsOnALoopOfLinks) {
  ASSERT_EQ(::symlink("two", "/tmp/d/one"), 0);
  ASSERT_EQ(::symlink("one", "/tmp/d/two"), 0);
  const auto done = replaceFile("/tmp/d/one", "new");
  ASSERT_FALSE(done.ok());
  EXPECT_EQ(done.error().sysErrno, ELOOP);
  EXPECT_EQ(namesIn("/tmp/d"), (Names{"one", "two"}));
}

TEST_F(ReplaceFile, FollowsFortyLinksAndNoMore) {
  const auto link = [](int number) { return "/tmp/d/link" + std::to_string(number); };
  putFile(link(0), "old");
  for (int number = 1; number <= 41; ++number)
    ASSERT_EQ(::symlink(link(number - 1).c_str(), link(number).c_str()), 0);
  EXPECT_EQ(replaceFile(link(41), "new").error().sysErrno, ELOOP);
  EXPECT_EQ(contentOf(link(0)), "old");
  EXPECT_TRUE(replaceFile(link(40), "new").ok());
  EXPECT_EQ(contentOf(link(0)), "new");
}

TEST_F(ReplaceFile, LeavesTheFileOfADirectoryThatCannotBeSynced) {
  putFile("/tmp/d/f", "old");
  ASSERT_EQ(::chmod("/tmp/d", 0300), 0);
  tests::Child child([] {
    if (!tests::dropCapabilities()) return 2;
    return replaceFile("/tmp/d/f", "new").error().sysErrno == EACCES ? 0 : 1;
  });
  EXPECT_EQ(child.exitStatus(), 0);
  EXPECT_EQ(contentOf("/tmp/d/f"), "old");
  EXPECT_EQ(namesIn("/tmp/d"), Names{"f"});
}

TEST_F(ReplaceFile, RefusesALinkToADirectory) {
  putDirectory("/tmp/real");
  ASSERT_EQ(::symlink("/tmp/real", "/tmp/d/link"), 0);
  EXPECT_EQ(replaceFile("/tmp/d/link", "new").error().kind, ErrorKind::kRefused);
  EXPECT_EQ(namesIn("/tmp/real"), Names{});
}

Status replaceNotLink(const std::string& path) {
  constexpr std::array<unsigned char, 3> kNew = {'n', 'e', 'w'};
  return replaceFileNotLink(path, kNew);
}

TEST_F(ReplaceFile, RefusesALinkWhereNoneIsToBeFollowed) {
  putFile("/tmp/other", "other");
  ASSERT_EQ(::symlink("/tmp/other", "/tmp/d/f"), 0);
  EXPECT_EQ(replaceNotLink("/tmp/d/f").error().kind, ErrorKind::kRefused);
  EXPECT_EQ(contentOf("/tmp/other"), "other");
  ASSERT_EQ(::unlink("/tmp/d/f"), 0);
  putFile("/tmp/d/f", "old", 0640);
  EXPECT_TRUE(replaceNotLink("/tmp/d/f").ok());
  EXPECT_EQ(contentOf("/tmp/d/f"), "new");
  EXPECT_EQ(modeOf("/tmp/d/f"), 0640U);
}

TEST_F(ReplaceFile, FollowsNoLinkThatSomebodyPutsThereMeanwhileEither) {
  putFile("/tmp/other", "other");
  putFile("/tmp/d/f", "old");
  std::atomic<bool> bDone = false;
  std::thread somebody([&] {
    while (!bDone) {
      (void)::symlink("/tmp/other", "/tmp/d/link");
      (void)::rename("/tmp/d/link", "/tmp/d/f");
      putFile("/tmp/d/file", "old");
      (void)::rename("/tmp/d/file", "/tmp/d/f");
    }
  });
  int replaced = 0;
  for (int i = 0; i < 500 || replaced == 0; ++i)
    replaced += replaceNotLink("/tmp/d/f").ok() ? 1 : 0;
  bDone = true;
  somebody.join();
  EXPECT_EQ(contentOf("/tmp/other"), "other");
}

TEST_F(ReplaceFile, LeavesTheOldContentAndNoTemporaryFileOnAFullDisk) {
  tests::mountSmall("/tmp/small", 64 * 1024);
  putFile("/tmp/small/f", "old", 0640);
  const auto done = replaceFile("/tmp/small/f", std::string(1024 * 1024, 'x'));
  ASSERT_FALSE(done.ok());
  EXPECT_EQ(done.error().kind, ErrorKind::kSystem);
  EXPECT_EQ(done.error().sysErrno, ENOSPC);
  EXPECT_EQ(contentOf("/tmp/small/f"), "old");
  EXPECT_EQ(namesIn("/tmp/small"), Names{"f"});
}

TEST_F(ReplaceFile, LeavesNothingOfANewFileOnAFullDisk) {
  tests::mountSmall("/tmp/small", 64 * 1024);
  EXPECT_EQ(replaceFile("/tmp/small/f", std::string(1024 * 1024, 'x')).error().sysErrno, ENOSPC);
  EXPECT_EQ(namesIn("/tmp/small"), Names{});
}

TEST_F(ReplaceFile, ShowsAReaderTheOldContentOrTheNewAndNeverAPart) {
  const std::string one(100'000, '1');
  const std::string two(70'000, '2');
  ASSERT_TRUE(replaceFile("/tmp/d/f", one).ok());
  std::atomic<int> writes{0};
  std::atomic<bool> bEnd{false};
  std::thread writer([&] {
    for (; !bEnd; ++writes)
      EXPECT_TRUE(replaceFile("/tmp/d/f", writes % 2 == 0 ? two : one).ok());
  });
  for (int reads = 0; reads < 200 || writes < 200; ++reads) {
    const auto seen = readText("/tmp/d/f");
    EXPECT_TRUE(seen.ok() && (seen.value() == one || seen.value() == two));
  }
  bEnd = true;
  writer.join();
}

TEST_F(ReplaceFile, FinishesBeforeASignalEndsTheRun) {
  putFile("/tmp/d/f", "old");
  for (int round = 0; round < 40; ++round) {
    tests::Child child([]() -> int {
      ::signal(SIGINT, SIG_DFL);
      while (true)
        static_cast<void>(replaceFile("/tmp/d/f", std::string(20'000, 'x')));
    });
    ::usleep(static_cast<useconds_t>(2'000 + 137 * round));  // wherever that finds it
    ASSERT_EQ(::kill(child.pid(), SIGINT), 0);
    const int status = child.wait();
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGINT);
    ASSERT_EQ(namesIn("/tmp/d"), Names{"f"}) << "a temporary file was left";
  }
}

TEST(WriteAll, ReportsWhereNothingCanBeWritten) {
  const UniqueFd full(::open("/dev/full", O_WRONLY | O_CLOEXEC));
  const std::string text = "x";
  const auto done = writeAll(full.get(), {reinterpret_cast<const unsigned char*>(text.data()), text.size()});
  ASSERT_FALSE(done.ok());
  EXPECT_EQ(done.error().sysErrno, ENOSPC);
}

}  // namespace
}  // namespace kelt::base
