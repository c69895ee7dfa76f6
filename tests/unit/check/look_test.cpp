#include "check/look.h"

#include <unistd.h>

#include "check/elf_file.h"
#include "collected.h"

#include "base/file_read.h"

using namespace kelt::check;  // NOLINT(google-build-using-namespace)

namespace {

class Look : public kelt::tests::PrivateDevice {};

TEST_F(Look, FollowsLinksUnlessTheLinkIsMeant) {
  kelt::tests::putFile("/tmp/file", "12345");
  ASSERT_EQ(::symlink("file", "/tmp/link"), 0);
  EXPECT_EQ(lookAt("/tmp/link").value().st_size, 5);
  EXPECT_STREQ(kindOf(lookAt("/tmp/link").value()), "file");
  EXPECT_STREQ(kindOf(lookAt("/tmp/link", true).value()), "symbolic link");
  EXPECT_EQ(lookAt("/tmp/none").error().kind, kelt::base::ErrorKind::kNotFound);
}

TEST_F(Look, NamesTheKindsOfFiles) {
  ASSERT_EQ(::mkfifo("/tmp/fifo", 0600), 0);
  EXPECT_STREQ(kindOf(lookAt("/tmp/fifo").value()), "FIFO");
  EXPECT_STREQ(kindOf(lookAt("/tmp").value()), "directory");
  EXPECT_STREQ(kindOf(lookAt("/dev/null").value()), "device");
}

TEST_F(Look, TellsOfTheFileSystem) {
  kelt::tests::mountSmall("/run", 65536);
  EXPECT_EQ(fileSystemOf("/run").value().f_blocks * fileSystemOf("/run").value().f_frsize, 65536U);
  EXPECT_FALSE(fileSystemOf("/tmp/none").ok());
  EXPECT_EQ(whyFixed("/run"), nullptr);
  EXPECT_EQ(whyFixed("/tmp/none"), nullptr);
  EXPECT_FALSE(bMountPoint("/tmp/none"));
}

std::string shared(const std::string& path) {
  const auto file = kelt::base::openRegular(path);
  const char* why = file ? whyNoSharedObject(file.value().get()) : "is not there";
  return why == nullptr ? "" : why;
}

TEST_F(Look, KnowsASharedObjectOfThisMachine) {
  std::string program = kelt::tests::contentOf("/proc/self/exe");
  ASSERT_GT(program.size(), 1000U);
  EXPECT_EQ(shared("/proc/self/exe"), "") << "position independent programs are shared objects";
  kelt::tests::putFile("/tmp/text", "#!/bin/sh\n");
  EXPECT_EQ(shared("/tmp/text"), "is no shared object");
  kelt::tests::putFile("/tmp/empty", "");
  EXPECT_EQ(shared("/tmp/empty"), "is no shared object");
  kelt::tests::putFile("/tmp/part", program.substr(0, 4096));
  EXPECT_EQ(shared("/tmp/part"), "is not complete");
  program[18] = static_cast<char>(program[18] + 1);  // a byte of the machine's number
  kelt::tests::putFile("/tmp/other", program);
  EXPECT_EQ(shared("/tmp/other"), "is a shared object for another machine");
}

}  // namespace
