#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "support/private_device.h"

#include "platform/anxml.h"

namespace kelt::tests {
namespace {

constexpr const char* kFile = "/opt/Quorvane/list.xml";
constexpr const wchar_t* kPath = L"/opt/Quorvane/list.xml";

bool use(AnXml& xml, const wchar_t* root) {
  return xml.useExistingFile(kPath, root, nullptr, nullptr);
}
bool useAlways(AnXml& xml, const wchar_t* root) {
  return xml.useFileAlways(kPath, root, nullptr, nullptr);
}

/// Whether the document is empty: its root is none.
bool bEmpty(AnXml& xml) {
  return !AnXmlNode(&xml).setValue(L"", L"x");
}

class AnXmlFile : public PrivateDevice {};

TEST_F(AnXmlFile, UseExistingFileLoadsADocumentWithTheRootAskedFor) {
  putFile(kFile, "<ns:SiteLists><SiteList/></ns:SiteLists>");
  AnXml xml;
  ASSERT_TRUE(use(xml, L"ns:SiteLists"));
  AnXmlNode found;
  EXPECT_TRUE(AnXmlNode(&xml).getExistingChild(&found, L"SiteList", nullptr, nullptr, nullptr, nullptr));
}

TEST_F(AnXmlFile, UseExistingFileFailsForAMissingFileAndMakesNone) {
  AnXml xml;
  EXPECT_FALSE(use(xml, L"a"));
  EXPECT_TRUE(bEmpty(xml));
  EXPECT_FALSE(exists(kFile));
}

TEST_F(AnXmlFile, UseExistingFileFailsForAnotherRootName) {
  putFile(kFile, "<ns:a/>");
  AnXml xml;
  for (const wchar_t* name : {L"a", L"NS:A", L"ns:", L"ns:aa", L"", L"x:a"})
    EXPECT_FALSE(use(xml, name));
  EXPECT_FALSE(use(xml, nullptr));
  EXPECT_TRUE(bEmpty(xml));
}

TEST_F(AnXmlFile, UseExistingFileFailsForADirectoryAndAFifo) {
  putDirectory(kFile);
  AnXml xml;
  EXPECT_FALSE(use(xml, L"a"));
  ASSERT_EQ(::rmdir(kFile), 0);
  ASSERT_EQ(::mkfifo(kFile, 0600), 0);
  EXPECT_FALSE(use(xml, L"a"));
}

TEST_F(AnXmlFile, UseExistingFileFailsForAMalformedFileAndForgetsTheDocumentBefore) {
  putFile(kFile, "<a/>");
  AnXml xml;
  ASSERT_TRUE(use(xml, L"a"));
  putFile(kFile, "<a>");
  EXPECT_FALSE(use(xml, L"a"));
  EXPECT_TRUE(bEmpty(xml));
  EXPECT_FALSE(xml.writeFile(kPath, false, false));
  EXPECT_EQ(contentOf(kFile), "<a>");
}

TEST_F(AnXmlFile, UseExistingFileFailsForNoPathAndForReservedArguments) {
  putFile(kFile, "<a/>");
  AnXml xml;
  EXPECT_FALSE(xml.useExistingFile(nullptr, L"a", nullptr, nullptr));
  EXPECT_FALSE(xml.useExistingFile(L"", L"a", nullptr, nullptr));
  EXPECT_FALSE(xml.useExistingFile(kPath, L"a", L"", nullptr));
  EXPECT_FALSE(xml.useExistingFile(kPath, L"a", nullptr, L""));
  EXPECT_FALSE(xml.useFileAlways(nullptr, L"a", nullptr, nullptr));
  EXPECT_FALSE(xml.useFileAlways(kPath, L"", nullptr, nullptr));
  EXPECT_FALSE(xml.useFileAlways(kPath, L"a", L"", nullptr));
}

TEST_F(AnXmlFile, Latin1LoadsWhereDeclaredAndIsWrittenAsUtf8) {
  putFile(kFile, "<?xml version='1.0' encoding='ISO-8859-1'?><a x='\xE4'>caf\xE9<\xE9/></a>");
  AnXml xml;
  ASSERT_TRUE(use(xml, L"a"));
  AString text;
  AnXmlNode found;
  ASSERT_TRUE(AnXmlNode(&xml).getExistingChild(&found, L"\xE9", nullptr, nullptr, nullptr, nullptr));
  ASSERT_TRUE(xml.writeFile(kPath, false, false));
  EXPECT_EQ(contentOf(kFile),
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<a x=\"\xC3\xA4\">caf\xC3\xA9<\xC3\xA9/></a>\n");
  EXPECT_TRUE(use(xml, L"a"));
}

TEST_F(AnXmlFile, Utf16WithAByteOrderMarkLoadsAndIsWrittenAsUtf8) {
  const std::u16string text =
      u"<?xml version='1.0' encoding='UTF-16'?>\n<a x='\u00E4'>caf\u00E9<\u00E9></\u00E9>\U0001F600</a>";
  for (const bool bBigEndian : {false, true}) {
    std::string bytes = bBigEndian ? "\xFE\xFF" : "\xFF\xFE";
    for (const char16_t unit : text) {
      const char high = static_cast<char>(static_cast<unsigned char>(unit >> 8U));
      const char low = static_cast<char>(static_cast<unsigned char>(unit & 0xFFU));
      bytes += bBigEndian ? std::string{high, low} : std::string{low, high};
    }
    putFile(kFile, bytes);
    AnXml xml;
    ASSERT_TRUE(use(xml, L"a"));
    AString value;
    AnXmlNode found;
    ASSERT_TRUE(AnXmlNode(&xml).getExistingChild(&found, L"\xE9", nullptr, nullptr, nullptr, &value));
    EXPECT_EQ(contentOf(kFile), bytes);
    ASSERT_TRUE(xml.writeFile(kPath, false, false));
    EXPECT_EQ(contentOf(kFile),
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<a x=\"\xC3\xA4\">caf\xC3\xA9<\xC3\xA9></\xC3\xA9>"
              "\xF0\x9F\x98\x80</a>\n");
    EXPECT_TRUE(use(xml, L"a"));
  }
}

TEST_F(AnXmlFile, Latin1BytesWithoutADeclarationDoNotLoad) {
  putFile(kFile, "<a>caf\xE9</a>");
  AnXml xml;
  EXPECT_FALSE(use(xml, L"a"));
}

TEST_F(AnXmlFile, UseFileAlwaysStartsANewDocumentWhereThereIsNoFile) {
  AnXml xml;
  ASSERT_TRUE(useAlways(xml, L"CustomProperties"));
  EXPECT_FALSE(exists(kFile));
  AnXmlNode child;
  ASSERT_TRUE(AnXmlNode(&xml).addChild(&child, L"CustomProps1", nullptr, nullptr));
  ASSERT_TRUE(child.setValue(L"value", L"A"));
  ASSERT_TRUE(xml.writeFile(kPath, false, false));
  EXPECT_EQ(contentOf(kFile),
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
            "<CustomProperties><CustomProps1 value=\"A\"/></CustomProperties>\n");
}

TEST_F(AnXmlFile, ANewFileIsForItsOwnerOnly) {
  AnXml xml;
  ASSERT_TRUE(useAlways(xml, L"a"));
  ASSERT_TRUE(xml.writeFile(kPath, false, false));
  EXPECT_EQ(modeOf(kFile), 0600U);
}

TEST_F(AnXmlFile, UseFileAlwaysLoadsTheFileThatIsThere) {
  putFile(kFile, "<a><b/></a>");
  AnXml xml;
  ASSERT_TRUE(useAlways(xml, L"a"));
  AnXmlNode added;
  ASSERT_TRUE(AnXmlNode(&xml).addChild(&added, L"c", nullptr, nullptr));
  ASSERT_TRUE(xml.writeFile(kPath, false, false));
  EXPECT_EQ(contentOf(kFile), "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<a><b/><c/></a>\n");
}

TEST_F(AnXmlFile, UseFileAlwaysFailsForAFileThatDoesNotLoadAndLeavesItAsItIs) {
  for (const std::string content : {"", "<a>", "<b/>", "<!DOCTYPE a><a/>", "<a>\xE9</a>"}) {
    putFile(kFile, content, 0640);
    AnXml xml;
    EXPECT_FALSE(useAlways(xml, L"a"));
    EXPECT_TRUE(bEmpty(xml));
    EXPECT_EQ(contentOf(kFile), content);
    EXPECT_EQ(modeOf(kFile), 0640U);
  }
}

TEST_F(AnXmlFile, UseFileAlwaysFailsForADirectory) {
  putDirectory(kFile);
  AnXml xml;
  EXPECT_FALSE(useAlways(xml, L"a"));
}

TEST_F(AnXmlFile, WriteFileKeepsModeAndLinkOfTheFileThatItReplaces) {
  putFile("/opt/Quorvane/real.xml", "<a/>", 0644);
  ASSERT_EQ(::symlink("real.xml", kFile), 0);
  AnXml xml;
  ASSERT_TRUE(use(xml, L"a"));
  ASSERT_TRUE(AnXmlNode(&xml).setValue(L"", L"t"));
  ASSERT_TRUE(xml.writeFile(kPath, false, false));
  EXPECT_EQ(contentOf("/opt/Quorvane/real.xml"), "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<a>t</a>\n");
  EXPECT_EQ(modeOf("/opt/Quorvane/real.xml"), 0644U);
  EXPECT_EQ(namesIn("/opt/Quorvane"), (std::vector<std::string>{"list.xml", "real.xml"}));
  EXPECT_EQ(::unlink(kFile), 0);
  EXPECT_TRUE(exists("/opt/Quorvane/real.xml"));
}

TEST_F(AnXmlFile, WriteFileFailsWithReservedFlagsNoPathOrNoDocument) {
  putFile(kFile, "<a/>");
  AnXml xml;
  EXPECT_FALSE(xml.writeFile(kPath, false, false));
  ASSERT_TRUE(use(xml, L"a"));
  EXPECT_FALSE(xml.writeFile(kPath, true, false));
  EXPECT_FALSE(xml.writeFile(kPath, false, true));
  EXPECT_FALSE(xml.writeFile(nullptr, false, false));
  EXPECT_FALSE(xml.writeFile(L"", false, false));
  xml.close();
  EXPECT_FALSE(xml.writeFile(kPath, false, false));
  EXPECT_EQ(contentOf(kFile), "<a/>");
}

TEST_F(AnXmlFile, WriteFileFailsWithoutADirectoryAndOnAFullOne) {
  putFile(kFile, "<a/>");
  AnXml xml;
  ASSERT_TRUE(use(xml, L"a"));
  EXPECT_FALSE(xml.writeFile(L"/opt/Quorvane/missing/list.xml", false, false));

  mountSmall("/opt/Quorvane/small", 8192);
  putFile("/opt/Quorvane/small/list.xml", "<old/>");
  ASSERT_TRUE(AnXmlNode(&xml).setValue(L"", std::wstring(20000, L'x').c_str()));
  EXPECT_FALSE(xml.writeFile(L"/opt/Quorvane/small/list.xml", false, false));
  EXPECT_EQ(contentOf("/opt/Quorvane/small/list.xml"), "<old/>");
  EXPECT_EQ(namesIn("/opt/Quorvane/small"), std::vector<std::string>{"list.xml"});
}

TEST_F(AnXmlFile, ADocumentCanBeWrittenAgainAfterAFailure) {
  putFile(kFile, "<a/>");
  AnXml xml;
  ASSERT_TRUE(use(xml, L"a"));
  AnXmlNode root(&xml);
  ASSERT_TRUE(root.setValue(L"x", L"\x01"));
  EXPECT_FALSE(xml.writeFile(kPath, false, false));
  EXPECT_EQ(contentOf(kFile), "<a/>");
  ASSERT_TRUE(root.setValue(L"x", L"1"));
  EXPECT_TRUE(xml.writeFile(kPath, false, false));
  EXPECT_EQ(contentOf(kFile), "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<a x=\"1\"/>\n");
}

TEST_F(AnXmlFile, ADocumentEditedBeyondTheDepthThatLoadsIsNotWritten) {
  AnXml xml;
  ASSERT_TRUE(useAlways(xml, L"a"));
  AnXmlNode node(&xml);
  for (int depth = 2; depth <= 256; ++depth)
    ASSERT_TRUE(node.addChild(&node, L"a", nullptr, nullptr));
  EXPECT_TRUE(xml.writeFile(kPath, false, false));
  EXPECT_TRUE(use(xml, L"a"));

  const std::string before = contentOf(kFile);
  ASSERT_TRUE(useAlways(xml, L"a"));
  node = AnXmlNode(&xml);
  while (node.getExistingChild(&node, L"a", nullptr, nullptr, nullptr, nullptr))
    continue;
  ASSERT_TRUE(node.addChild(&node, L"a", nullptr, nullptr));
  EXPECT_FALSE(xml.writeFile(kPath, false, false));
  EXPECT_EQ(contentOf(kFile), before);
}

}  // namespace
}  // namespace kelt::tests
