#include "platform/config_directory.h"

#include <algorithm>
#include <cstdio>
#include <sys/stat.h>
#include <unistd.h>

#include "support/private_device.h"

namespace kelt::platform {
namespace {

using base::ErrorKind;
using tests::putDirectory;
using tests::putFile;
using State = ConfigDirectory::State;

const std::string kRoot = "/etc/orv.d";
const std::string kFile = kRoot + "/PRODUCT/config.xml";
const std::string kContent = "<Configuration><Version>1</Version></Configuration>";

class ConfigDirectoryTest : public tests::PrivateDevice {
 protected:
  static base::Result<ConfigFile> load(ConfigUse use = ConfigUse::kDecides) {
    return ConfigDirectory(kRoot).load("PRODUCT", use);
  }

  /// A file that is not trusted is read where it only informs.
  static void expectRefused(const std::string& message) {
    const auto file = load();
    ASSERT_FALSE(file.ok());
    EXPECT_EQ(file.error().kind, ErrorKind::kRefused);
    EXPECT_EQ(file.error().message, message);
    EXPECT_TRUE(load(ConfigUse::kInforms).ok());
  }
};

TEST_F(ConfigDirectoryTest, GivesEveryDirectoryOnceAndNothingElse) {
  for (const char* name : {"A", ".hidden", "C"})
    putDirectory(kRoot + "/" + name);
  putFile(kRoot + "/file", "");
  ASSERT_EQ(::symlink("/opt", (kRoot + "/link").c_str()), 0);
  ASSERT_EQ(::symlink("/opt/nowhere", (kRoot + "/dangling").c_str()), 0);
  ConfigDirectory directory(kRoot);
  std::vector<std::string> names;
  while (auto name = directory.next())
    names.push_back(*name);
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (std::vector<std::string>{".hidden", "A", "C", "link"}));
  EXPECT_FALSE(directory.next());
}

TEST_F(ConfigDirectoryTest, GivesTheAgentsDirectoriesByTheMarkerInTheirNames) {
  for (const char* name : {"OTHER", "zentoragent", "a.ZENTORAGENT.b"})
    putDirectory(kRoot + "/" + name);
  putFile(kRoot + "/ZENTORAGENT", "");
  ConfigDirectory directory(kRoot + "/");
  EXPECT_EQ(directory.nextAgent(), "a.ZENTORAGENT.b");
  EXPECT_EQ(directory.nextAgent(), std::nullopt);
  EXPECT_EQ(directory.fileOf("a.ZENTORAGENT.b"), "/etc/orv.d/a.ZENTORAGENT.b/config.xml");
}

TEST_F(ConfigDirectoryTest, HasNothingWhereItIsNotThere) {
  ConfigDirectory directory("/etc/missing");
  EXPECT_EQ(directory.state(), State::kInaccessible);
  EXPECT_EQ(directory.usable().error().kind, ErrorKind::kNotFound);
  EXPECT_FALSE(directory.next());
  EXPECT_EQ(directory.load("PRODUCT").error().kind, ErrorKind::kNotFound);
  EXPECT_EQ(directory.load("PRODUCT", ConfigUse::kInforms).error().kind, ErrorKind::kNotFound);
  EXPECT_EQ(directory.loadAgent().error().kind, ErrorKind::kNotFound);
}

TEST_F(ConfigDirectoryTest, IsJudgedByWhatWasOpened) {
  const ConfigDirectory before(kRoot);
  EXPECT_EQ(before.state(), State::kUsable);
  EXPECT_TRUE(before.usable().ok());
  ASSERT_EQ(::chmod(kRoot.c_str(), 0777), 0);
  const ConfigDirectory open(kRoot);
  ASSERT_EQ(::rename(kRoot.c_str(), "/etc/moved"), 0);
  putDirectory(kRoot);
  EXPECT_EQ(open.state(), State::kWritableByOthers);
  EXPECT_EQ(open.usable().error().message, "/etc/orv.d: can be written by others");
  ASSERT_EQ(::rmdir("/etc/moved"), 0);
}

TEST_F(ConfigDirectoryTest, OfSomebodyElseIsTakenForOneThatOthersMayWriteTo) {
  tests::putForeignDirectory(kRoot);
  EXPECT_EQ(ConfigDirectory(kRoot).state(), State::kWritableByOthers);
  EXPECT_EQ(ConfigDirectory(kRoot).usable().error().message, "/etc/orv.d: belongs to somebody else");
}

TEST_F(ConfigDirectoryTest, ReadsTheTextOfTheRootsFirstChildOfAName) {
  putFile(kFile,
          "<Configuration><Old><Version>0</Version></Old><Version> 1, 2 </Version><Version>3</Version><Empty/>"
          "<Wide>\xC3\xA9</Wide></Configuration>");
  const auto file = load();
  ASSERT_TRUE(file.ok()) << file.error().message;
  EXPECT_EQ(file.value().firstText(L"Version"), L" 1, 2 ");
  EXPECT_EQ(file.value().firstText(L"Empty"), L"");
  EXPECT_EQ(file.value().firstText(L"Missing"), std::nullopt);
  EXPECT_EQ(file.value().firstTextOrEmpty(L"Missing"), L"");
  EXPECT_EQ(file.value().firstTextOrEmpty(L"Wide"), L"\xE9");
}

TEST_F(ConfigDirectoryTest, LoadsTheAgentsOwnFile) {
  putFile(kFile, kContent);
  EXPECT_EQ(ConfigDirectory(kRoot).loadAgent().error().kind, ErrorKind::kNotFound);
  putFile(kRoot + "/ZENTORAGENT3000/config.xml", kContent);
  EXPECT_EQ(ConfigDirectory(kRoot).loadAgent().value().firstText(L"Version"), L"1");
}

TEST_F(ConfigDirectoryTest, TellsAMissingFileFromARefusedOne) {
  putDirectory(kRoot + "/PRODUCT");
  EXPECT_EQ(load().error().kind, ErrorKind::kNotFound);
  putDirectory(kFile);
  EXPECT_EQ(load().error().message, kFile + ": is not a regular file");
  ASSERT_EQ(::rmdir(kFile.c_str()), 0);
  ASSERT_EQ(::mkfifo(kFile.c_str(), 0644), 0);
  EXPECT_EQ(load().error().message, kFile + ": is not a regular file");
}

TEST_F(ConfigDirectoryTest, NamesFileAndReasonForWhatIsNoConfiguration) {
  putFile(kFile, "<Configuration><Version>1</Configuration>");
  EXPECT_EQ(load().error().kind, ErrorKind::kMalformed);
  EXPECT_TRUE(load().error().message.starts_with(kFile + ": XML document with ")) << load().error().message;
  putFile(kFile, "<Settings><Version>1</Version></Settings>");
  EXPECT_EQ(load().error().message, kFile + ": XML document with another root element than Configuration");
}

TEST_F(ConfigDirectoryTest, TrustsNoFileThatOthersMayWriteTo) {
  putFile(kFile, kContent, 0646);
  expectRefused(kFile + ": can be written by others");
  putFile(kFile, kContent, 0664);
  EXPECT_TRUE(load().ok()) << "that a group may write is root's to decide";
}

TEST_F(ConfigDirectoryTest, TrustsNoFileInADirectoryThatOthersMayWriteTo) {
  putFile(kFile, kContent);
  ASSERT_EQ(::chmod("/etc/orv.d/PRODUCT", 0777), 0);
  expectRefused(kFile + ": /etc/orv.d/PRODUCT: can be written by others");
  ASSERT_EQ(::chmod("/etc/orv.d/PRODUCT", 0775), 0);
  EXPECT_TRUE(load().ok());
  ASSERT_EQ(::chmod(kRoot.c_str(), 0757), 0);
  expectRefused("/etc/orv.d: can be written by others");
  EXPECT_FALSE(ConfigDirectory(kRoot).loadAgent(ConfigUse::kInforms).ok()) << "the agent is not looked for in it";
}

TEST_F(ConfigDirectoryTest, TrustsNoFileOfSomebodyElse) {
  putFile(kFile, kContent);
  // In a namespace of one user no file can be given away, but what the machine's root owns is foreign there.
  if (::chown(kFile.c_str(), 65534, 0) == 0) {
    expectRefused(kFile + ": belongs to somebody else");
    return;
  }
  ASSERT_EQ(::unlink(kFile.c_str()), 0);
  ASSERT_EQ(::symlink("/machine/etc/passwd", kFile.c_str()), 0);
  EXPECT_EQ(load().error().message, kFile + ": /machine/etc/passwd: belongs to somebody else");
}

TEST_F(ConfigDirectoryTest, JudgesTheDirectoryThatALinkLeadsInto) {
  putFile("/opt/Quorvane/shared/config", kContent);
  putDirectory(kRoot + "/PRODUCT");
  ASSERT_EQ(::symlink("/opt/Quorvane/shared/config", kFile.c_str()), 0);
  EXPECT_TRUE(load().ok());
  ASSERT_EQ(::chmod("/opt/Quorvane/shared", 01777), 0);
  expectRefused(kFile + ": /opt/Quorvane/shared: can be written by others");
}

TEST_F(ConfigDirectoryTest, JudgesTheProductDirectoryThatALinkLeadsTo) {
  putFile("/opt/Quorvane/shared/config.xml", kContent);
  ASSERT_EQ(::symlink("/opt/Quorvane/shared", "/etc/orv.d/PRODUCT"), 0);
  EXPECT_TRUE(load().ok());
  ASSERT_EQ(::chmod("/opt/Quorvane/shared", 0777), 0);
  expectRefused(kFile + ": /etc/orv.d/PRODUCT: can be written by others");
}

TEST_F(ConfigDirectoryTest, LooksForProductsInWhatWasOpened) {
  putFile(kFile, kContent);
  ConfigDirectory directory(kRoot);
  ASSERT_EQ(::rename(kRoot.c_str(), "/etc/moved"), 0);
  putFile(kFile, "<Configuration><Version>planted</Version></Configuration>");
  EXPECT_EQ(directory.next(), "PRODUCT");
  EXPECT_EQ(directory.load("PRODUCT").value().firstText(L"Version"), L"1");
  ASSERT_EQ(::unlink("/etc/moved/PRODUCT/config.xml"), 0);
  ASSERT_EQ(::rmdir("/etc/moved/PRODUCT"), 0);
  ASSERT_EQ(::rmdir("/etc/moved"), 0);
}

TEST_F(ConfigDirectoryTest, KeepsNoDescriptorOfAFile) {
  putFile(kFile, kContent);
  const auto before = tests::namesIn("/proc/self/fd").size();
  EXPECT_TRUE(load().ok());
  EXPECT_EQ(tests::namesIn("/proc/self/fd").size(), before);
}

}  // namespace
}  // namespace kelt::platform
