#include "modes/config_values.h"

#include <sys/stat.h>
#include <unistd.h>

#include "installation.h"

using kelt::tests::contentOf;
using kelt::tests::putDirectory;
using kelt::tests::putFile;
using namespace kelt::modes;  // NOLINT(google-build-using-namespace)

namespace {

const std::string kConfig = "/etc/orv.d/ZENTORAGENT/config.xml";

class ConfigValues : public kelt::tests::PrivateDevice {};

std::string foundPath() {
  std::string path = "as before";
  getconfigPath(path);
  return path;
}

TEST_F(ConfigValues, KnowsTheAgentsDirectories) {
  EXPECT_EQ(getORVConfPath(), L"/opt/Quorvane/orv/");
  EXPECT_EQ(getORVScratchPath(), L"/opt/Quorvane/orv/scratch/");
}

TEST_F(ConfigValues, FindsTheAgentsFile) {
  putDirectory("/etc/orv.d/OTHER");
  putDirectory("/etc/orv.d/a.ZENTORAGENT.b");
  EXPECT_EQ(foundPath(), "/etc/orv.d/a.ZENTORAGENT.b/config.xml");
}

TEST_F(ConfigValues, TakesTheFirstOfSeveralAsTheDirectoryListsThem) {
  for (const char* name : {"ZENTORAGENT", "aZENTORAGENTb", "ZENTORAGENT-old"}) {
    putDirectory(std::string("/etc/orv.d/") + name);
  }
  EXPECT_EQ(foundPath(), "/etc/orv.d/" + kelt::tests::namesAsListed("/etc/orv.d").front() + "/config.xml");
}

TEST_F(ConfigValues, LeavesThePathAsItWasWithoutAnAgentDirectory) {
  putFile("/etc/orv.d/ZENTORAGENT", "a file");
  putDirectory("/etc/orv.d/zentoragent");
  EXPECT_EQ(foundPath(), "as before");
  kelt::tests::resetDevice();
  ASSERT_EQ(::rmdir("/etc/orv.d"), 0);
  EXPECT_EQ(foundPath(), "as before");
}

TEST_F(ConfigValues, ReadsAFileUpToItsFirstZeroByte) {
  std::string content = "as before";
  putFile("/tmp/file", std::string("one\ntwo\0three", 13));
  EXPECT_EQ(load_file_to_buffer("/tmp/file", content), 1);
  EXPECT_EQ(content, "one\ntwo");
  putFile("/tmp/file", "");
  EXPECT_EQ(load_file_to_buffer("/tmp/file", content), 1);
  EXPECT_EQ(content, "");
}

TEST_F(ConfigValues, ReadsAtMost4095Bytes) {
  std::string content = "as before";
  putFile("/tmp/file", std::string(4096, 'x'));
  EXPECT_EQ(load_file_to_buffer("/tmp/file", content), 0);
  EXPECT_EQ(content, "as before");
  putFile("/tmp/file", std::string(4095, 'x'));
  EXPECT_EQ(load_file_to_buffer("/tmp/file", content), 1);
  EXPECT_EQ(content, std::string(4095, 'x'));
}

TEST_F(ConfigValues, ReadsNothingButFiles) {
  std::string content = "as before";
  ASSERT_EQ(::mkfifo("/tmp/fifo", 0600), 0);
  for (const char* path : {"/tmp/missing", "/tmp", "/tmp/fifo", ""}) {
    EXPECT_EQ(load_file_to_buffer(path, content), 0) << path;
  }
  EXPECT_EQ(content, "as before");
}

/// What becomes of a file with `content` when `name` is set to "new"; "refused" when that is not possible.
std::string updated(const std::string& content, const std::string& name = "v") {
  putFile("/tmp/values", "never read");
  std::string path = "/tmp/values";
  if (!update_value_to_file(content, name, "new", path)) {
    EXPECT_EQ(contentOf(path), "never read");
    return "refused";
  }
  return contentOf(path);
}

TEST_F(ConfigValues, PutsTheValueBetweenTheTags) {
  EXPECT_EQ(updated("a<v>old</v>b"), "a<v>new</v>b");
  EXPECT_EQ(updated("a<v></v>b"), "a<v>new</v>b");
  EXPECT_EQ(updated("<v>\r\n <w/>\t</v>"), "<v>new</v>");
}

TEST_F(ConfigValues, ChangesTheFirstElementOfTheNameOnly) {
  EXPECT_EQ(updated("<v>1</v><v>2</v>"), "<v>new</v><v>2</v>");
  EXPECT_EQ(updated("<vv>1</vv><v>2</v>"), "<vv>1</vv><v>new</v>");
}

TEST_F(ConfigValues, NeedsBothTags) {
  EXPECT_EQ(updated("<v>old"), "refused");
  EXPECT_EQ(updated("old</v>"), "refused");
  EXPECT_EQ(updated("<v/>"), "refused");
  EXPECT_EQ(updated("<v >old</v>"), "refused");
  EXPECT_EQ(updated("<V>old</V>"), "refused");
  EXPECT_EQ(updated(""), "refused");
}

TEST_F(ConfigValues, DoesNotAskForTheEndTagToComeLast) {
  EXPECT_EQ(updated("a</v>b<v>c"), "a</v>b<v>new</v>b<v>c");
}

TEST_F(ConfigValues, SaysNothingOfAFailedWriteAndKeepsTheFile) {
  putDirectory("/tmp/directory");
  std::string path = "/tmp/directory";
  EXPECT_TRUE(update_value_to_file("<v></v>", "v", "new", path));
  EXPECT_EQ(kelt::tests::namesIn("/tmp/directory"), std::vector<std::string>{});

  kelt::tests::mountSmall("/tmp/full", 8192);
  putFile("/tmp/full/values", "<v>old</v>");
  putFile("/tmp/full/filler", std::string(4096, 'x'));
  path = "/tmp/full/values";
  EXPECT_TRUE(update_value_to_file("<v></v>", "v", "new", path));
  EXPECT_EQ(contentOf(path), "<v>old</v>");
  EXPECT_EQ(kelt::tests::namesIn("/tmp/full"), (std::vector<std::string>{"filler", "values"}));
}

/// A configuration of exactly `size` bytes whose hash is "old".
std::string configOfSize(std::size_t size) {
  const std::string start = "<Configuration><binsphash>old</binsphash>\n<!--";
  const std::string end = "--></Configuration>\n";
  return start + std::string(size - start.size() - end.size(), 'x') + end;
}

TEST_F(ConfigValues, StoresTheHashAndKeepsEveryOtherByte) {
  const std::string before = "\xEF\xBB\xBF<?xml version='1.0'?>\r\n<Configuration>\t<A b = 'c'/><binsphash>";
  const std::string after = "</binsphash> <!-- \xE9 --><binsphash>other</binsphash></Configuration>";
  for (const std::string value : {"old", ""}) {
    putFile(kConfig, before + value + after, 0640);
    EXPECT_TRUE(bSetServerPublicKeyHashInfo("0123ABCD"));
    EXPECT_EQ(contentOf(kConfig), before + "0123ABCD" + after);
    EXPECT_EQ(kelt::tests::modeOf(kConfig), 0640U);
  }
  EXPECT_EQ(kelt::tests::namesIn("/etc/orv.d/ZENTORAGENT"), std::vector<std::string>{"config.xml"});
}

TEST_F(ConfigValues, EditsAFileOf4095BytesAndNoLongerOne) {
  putFile(kConfig, configOfSize(4095));
  EXPECT_TRUE(bSetServerPublicKeyHashInfo("a hash that is longer"));
  EXPECT_NE(contentOf(kConfig).find("<binsphash>a hash that is longer</binsphash>"), std::string::npos);

  putFile(kConfig, configOfSize(4096));
  EXPECT_FALSE(bSetServerPublicKeyHashInfo("hash"));
  EXPECT_EQ(contentOf(kConfig), configOfSize(4096));
}

TEST_F(ConfigValues, StoresNoHashWithoutAPlaceForIt) {
  EXPECT_FALSE(bSetServerPublicKeyHashInfo("hash"));
  putDirectory("/etc/orv.d/ZENTORAGENT");
  EXPECT_FALSE(bSetServerPublicKeyHashInfo("hash"));
  EXPECT_FALSE(kelt::tests::exists(kConfig));
  for (const std::string content : {"<Configuration></Configuration>", "<Configuration><binsphash/></Configuration>"}) {
    putFile(kConfig, content);
    EXPECT_FALSE(bSetServerPublicKeyHashInfo("hash"));
    EXPECT_EQ(contentOf(kConfig), content);
  }
}

TEST_F(ConfigValues, CountsFilesWithContentOnly) {
  EXPECT_FALSE(bFileExists(L""));
  EXPECT_FALSE(bFileExists(L"/tmp/missing"));
  EXPECT_FALSE(bFileExists(L"/tmp"));
  putFile("/tmp/file", "");
  EXPECT_FALSE(bFileExists(L"/tmp/file"));
  EXPECT_FALSE(bFileExists(L"/tmp/file/below"));
  putFile("/tmp/file", "x");
  EXPECT_TRUE(bFileExists(L"/tmp/file"));
  EXPECT_TRUE(bFileExists(L"//tmp//file"));
  kelt::tests::putLoop("/tmp/loop");
  EXPECT_FALSE(bFileExists(L"/tmp/loop"));
}

TEST_F(ConfigValues, PrintsNothing) {
  const auto output = kelt::tests::outputOf([] {
    foundPath();
    bSetServerPublicKeyHashInfo("hash");
    putFile(kConfig, configOfSize(300));
    bSetServerPublicKeyHashInfo("hash");
  });
  EXPECT_EQ(output.out + output.err, "");
}

}  // namespace
