#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

#include "support/child.h"
#include "support/private_device.h"

#include "platform/afile.h"

namespace kelt::tests {
namespace {

class Filer : public PrivateDevice {};

/// What the query says with both facts apart. The flags begin as the opposite of what "unchanged" could mimic.
struct Answer {
  bool bKnown = false;
  bool bAccessible = true;
  bool bExists = true;
  friend bool operator==(const Answer&, const Answer&) = default;
};

Answer ask(const wchar_t* path, AFiler::AFileAccess access = AFiler::kRead) {
  Answer answer;
  answer.bKnown = AFiler::getFileAccessibility(path, access, answer.bAccessible, answer.bExists);
  return answer;
}

const Answer kAbsent{true, false, false};
const Answer kDenied{true, false, true};
const Answer kThere{true, true, true};
const Answer kUnknown{false, true, true};

/// The short form: "yes", "no", or "unknown", with the flag untouched.
std::string askShortly(const wchar_t* path, AFiler::AFileAccess access = AFiler::kRead) {
  bool bYes = false;
  bool bNo = true;
  const bool bKnown = AFiler::getFileAccessibility(path, access, bYes);
  if (AFiler::getFileAccessibility(path, access, bNo) != bKnown) return "contradiction";
  if (!bKnown) return !bYes && bNo ? "unknown" : "unknown, with the flag changed";
  return bYes == bNo ? (bYes ? "yes" : "no") : "flag not set";
}

TEST_F(Filer, KnowsTheKindsOfAccessByTheirNumbers) {
  EXPECT_EQ(AFiler::kExistence, 0);
  EXPECT_EQ(AFiler::kRead, 1);
  EXPECT_EQ(AFiler::kWrite, 2);
}

TEST_F(Filer, AFileThatIsThereIsAccessible) {
  putFile("/tmp/f", "");
  EXPECT_EQ(ask(L"/tmp/f"), kThere);
  EXPECT_EQ(askShortly(L"/tmp/f"), "yes");
}

TEST_F(Filer, ADirectoryCounts) {
  EXPECT_EQ(ask(L"/tmp"), kThere);
  EXPECT_EQ(askShortly(L"/tmp"), "yes");
}

TEST_F(Filer, AMissingFileIsAbsent) {
  putFile("/tmp/f", "");
  ASSERT_EQ(::symlink("none", "/tmp/dangling"), 0);
  for (const wchar_t* path : {L"/tmp/none", L"/tmp/none/below", L"/tmp/f/below", L"/tmp/dangling", L""}) {
    EXPECT_EQ(ask(path), kAbsent) << ACharString(path).str();
    EXPECT_EQ(askShortly(path), "no") << ACharString(path).str();
  }
}

TEST_F(Filer, AFileThatIsClosedToUsIsThereAndNotAccessible) {
  putFile("/tmp/closed", "", 0000);
  putFile("/tmp/readable", "", 0400);
  Child child([] {
    if (!dropCapabilities()) return 9;
    if (ask(L"/tmp/closed") != kDenied) return 1;
    if (askShortly(L"/tmp/closed") != "no") return 2;
    if (ask(L"/tmp/closed", AFiler::kExistence) != kThere) return 3;
    if (ask(L"/tmp/readable") != kThere) return 4;
    if (ask(L"/tmp/readable", AFiler::kWrite) != kDenied) return 5;
    return 0;
  });
  EXPECT_EQ(child.exitStatus(), 0);
}

TEST_F(Filer, AFileInADirectoryThatIsClosedToUsCannotBeExamined) {
  putFile("/tmp/closed/f", "", 0644);
  ASSERT_EQ(::chmod("/tmp/closed", 0600), 0);
  Child child([] {
    if (!dropCapabilities()) return 9;
    for (const wchar_t* path : {L"/tmp/closed/f", L"/tmp/closed/none"}) {
      if (ask(path) != kUnknown) return 1;
      if (askShortly(path) != "unknown") return 2;
    }
    return 0;
  });
  EXPECT_EQ(child.exitStatus(), 0);
}

TEST_F(Filer, ALoopOfLinksAndANameThatIsTooLongCannotBeExamined) {
  ASSERT_EQ(::symlink("loop", "/tmp/loop"), 0);
  EXPECT_EQ(ask(L"/tmp/loop"), kUnknown);
  EXPECT_EQ(askShortly(L"/tmp/loop"), "unknown");
  const std::wstring tooLong = L"/tmp/" + std::wstring(256, L'n');
  EXPECT_EQ(ask(tooLong.c_str()), kUnknown);
  EXPECT_EQ(askShortly(tooLong.c_str()), "unknown");
}

TEST_F(Filer, AFileOnAReadOnlyFileSystemIsNotWritable) {
  putFile("/tmp/ro/f", "");
  mountReadOnly("/tmp/ro");
  EXPECT_EQ(ask(L"/tmp/ro/f", AFiler::kWrite), kDenied);
  EXPECT_EQ(ask(L"/tmp/ro/f", AFiler::kRead), kThere);
}

TEST_F(Filer, FindsAPathThatIsNoUtf8) {
  putFile("/tmp/caf\xE9", "");
  EXPECT_EQ(ask(quorvane_com::orv::tellcomn_ansi_to_wide("/tmp/caf\xE9").c_str()), kThere);
}

TEST_F(Filer, GivesTheSizeOfARegularFileOnly) {
  putFile("/tmp/f", "12345");
  putFile("/tmp/empty", "");
  ASSERT_EQ(::mkfifo("/tmp/fifo", 0600), 0);
  std::uint64_t size = 99;
  EXPECT_TRUE(AFiler::tryGetFileSize(L"/tmp/f", size));
  EXPECT_EQ(size, 5U);
  EXPECT_TRUE(AFiler::tryGetFileSize(L"/tmp/empty", size));
  EXPECT_EQ(size, 0U);
  size = 99;
  for (const wchar_t* path : {L"/tmp", L"/tmp/fifo", L"/tmp/none"})
    EXPECT_FALSE(AFiler::tryGetFileSize(path, size));
  EXPECT_EQ(size, 99U);
}

TEST_F(Filer, DeletesAFile) {
  putFile("/tmp/f", "");
  EXPECT_TRUE(AFiler::deleteFile(L"/tmp/f"));
  EXPECT_FALSE(exists("/tmp/f"));
}

TEST_F(Filer, DeletesALinkAndNotWhatItLeadsTo) {
  putFile("/tmp/f", "kept");
  ASSERT_EQ(::symlink("f", "/tmp/link"), 0);
  ASSERT_EQ(::symlink("none", "/tmp/dangling"), 0);
  EXPECT_TRUE(AFiler::deleteFile(L"/tmp/link"));
  EXPECT_TRUE(AFiler::deleteFile(L"/tmp/dangling"));
  EXPECT_EQ(namesIn("/tmp"), std::vector<std::string>{"f"});
}

TEST_F(Filer, ReportsThatThereIsNothingToDelete) {
  EXPECT_FALSE(AFiler::deleteFile(L"/tmp/none"));
}

TEST_F(Filer, DeletesNoDirectory) {
  putDirectory("/tmp/d");
  EXPECT_FALSE(AFiler::deleteFile(L"/tmp/d"));
  EXPECT_TRUE(exists("/tmp/d"));
}

TEST_F(Filer, CopiesAFile) {
  putFile("/tmp/from", "secret", 0600);
  putDirectory("/tmp/d");
  putFile("/tmp/d/old", "old", 0644);
  EXPECT_TRUE(AFiler::copyFile(L"/tmp/from", L"/tmp/d/new"));
  EXPECT_TRUE(AFiler::copyFile(L"/tmp/from", L"/tmp/d/old"));
  EXPECT_EQ(contentOf("/tmp/d/new"), "secret");
  EXPECT_EQ(modeOf("/tmp/d/new"), 0600U);
  EXPECT_EQ(contentOf("/tmp/d/old"), "secret");
  EXPECT_EQ(modeOf("/tmp/d/old"), 0644U);
}

TEST_F(Filer, ReportsACopyThatFailsAndLeavesTheTarget) {
  putFile("/tmp/f", "old");
  ASSERT_EQ(::mkfifo("/tmp/fifo", 0600), 0);
  EXPECT_FALSE(AFiler::copyFile(L"/tmp/none", L"/tmp/f"));
  EXPECT_FALSE(AFiler::copyFile(L"/tmp", L"/tmp/f"));
  EXPECT_FALSE(AFiler::copyFile(L"/tmp/fifo", L"/tmp/f"));
  EXPECT_EQ(contentOf("/tmp/f"), "old");
}

}  // namespace
}  // namespace kelt::tests
