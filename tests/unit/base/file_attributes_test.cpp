#include "base/file_attributes.h"

#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "support/private_device.h"

#include "base/file_replace.h"

namespace kelt::base {
namespace {

using tests::modeOf;
using tests::putDirectory;
using tests::putFile;

/// The attribute as the system gives it; "none" where there is none.
std::string attributeOf(const std::string& path, const char* name) {
  std::string value(1000, '\0');
  const ssize_t length = ::getxattr(path.c_str(), name, value.data(), value.size());
  return length < 0 ? "none" : value.substr(0, static_cast<std::size_t>(length));
}

bool setAttribute(const std::string& path, const char* name, const std::string& value) {
  return ::setxattr(path.c_str(), name, value.data(), value.size(), 0) == 0;
}

/// An access list that lets uid 0, by name, do what `permissions` say, and the owning group nothing.
std::string accessList(char permissions) {
  const auto entry = [](char tag, char allowed, const std::string& id) { return std::string{tag, 0, allowed, 0} + id; };
  const std::string nobody(4, '\xFF');
  const std::string uid0(4, '\0');
  return std::string("\x02\0\0\0", 4) + entry(0x01, 6, nobody) + entry(0x02, permissions, uid0) +
         entry(0x04, 0, nobody) + entry(0x10, permissions, nobody) + entry(0x20, 0, nobody);
}

constexpr const char* kAccess = "system.posix_acl_access";
constexpr const char* kDefault = "system.posix_acl_default";

class FileAttributes : public tests::PrivateDevice {
 protected:
  void SetUp() override {
    PrivateDevice::SetUp();
    putDirectory("/tmp/d");
    putFile("/tmp/d/f", "old");
  }
};

TEST_F(FileAttributes, KeepTheOwnerAndTheGroup) {
  static_cast<void>(::chown("/tmp/d/f", 12, 34));  // where there are more users than one
  struct stat before {};
  struct stat after {};
  ASSERT_EQ(::stat("/tmp/d/f", &before), 0);
  ASSERT_TRUE(replaceFile("/tmp/d/f", "new").ok());
  ASSERT_EQ(::stat("/tmp/d/f", &after), 0);
  EXPECT_NE(before.st_ino, after.st_ino);
  EXPECT_EQ(before.st_uid, after.st_uid);
  EXPECT_EQ(before.st_gid, after.st_gid);
}

TEST_F(FileAttributes, KeepTheMode) {
  for (const mode_t mode : {0U, 0400U, 0600U, 0644U, 0755U, 0777U}) {
    putFile("/tmp/d/f", "old", mode);
    ASSERT_TRUE(replaceFile("/tmp/d/f", "new").ok());
    EXPECT_EQ(modeOf("/tmp/d/f"), mode);
  }
}

TEST_F(FileAttributes, KeepTheModeOfAFileOfAnotherOwnerSetIdBitsIncluded) {
  static_cast<void>(::chown("/tmp/d/f", 12, 34));
  ASSERT_EQ(::chmod("/tmp/d/f", 04750), 0);
  ASSERT_TRUE(replaceFile("/tmp/d/f", "").ok());
  EXPECT_EQ(modeOf("/tmp/d/f"), 04750U);
}

TEST_F(FileAttributes, KeepExtendedAttributes) {
  ASSERT_TRUE(setAttribute("/tmp/d/f", "user.origin", std::string("server\0one", 10)));
  ASSERT_TRUE(setAttribute("/tmp/d/f", "user.empty", ""));
  ASSERT_TRUE(replaceFile("/tmp/d/f", "new").ok());
  EXPECT_EQ(attributeOf("/tmp/d/f", "user.origin"), std::string("server\0one", 10));
  EXPECT_EQ(attributeOf("/tmp/d/f", "user.empty"), "");
  EXPECT_EQ(attributeOf("/tmp/d/f", "user.other"), "none");
}

TEST_F(FileAttributes, KeepAnAccessList) {
  ASSERT_TRUE(setAttribute("/tmp/d/f", kAccess, accessList(4)));
  ASSERT_EQ(modeOf("/tmp/d/f"), 0640U) << "the group bits show the list's mask, not the group's permissions";
  ASSERT_TRUE(replaceFile("/tmp/d/f", "new").ok());
  EXPECT_EQ(attributeOf("/tmp/d/f", kAccess), accessList(4));
  EXPECT_EQ(modeOf("/tmp/d/f"), 0640U);
}

TEST_F(FileAttributes, TakeNoAccessListFromTheDirectory) {
  ASSERT_EQ(::chmod("/tmp/d/f", 0640), 0);
  ASSERT_TRUE(setAttribute("/tmp/d", kDefault, accessList(7)));
  ASSERT_TRUE(replaceFile("/tmp/d/f", "new").ok());
  EXPECT_EQ(attributeOf("/tmp/d/f", kAccess), "none");
  EXPECT_EQ(modeOf("/tmp/d/f"), 0640U);
}

TEST_F(FileAttributes, DropWhatVouchesForTheOldContent) {
  // A file capability: revision 2, none permitted, no flags.
  ASSERT_TRUE(setAttribute("/tmp/d/f", "security.capability", std::string("\0\0\0\2", 4) + std::string(16, '\0')));
  ASSERT_TRUE(replaceFile("/tmp/d/f", "").ok());
  EXPECT_EQ(attributeOf("/tmp/d/f", "security.capability"), "none");
}

}  // namespace
}  // namespace kelt::base
