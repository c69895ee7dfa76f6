#include <cwchar>
#include <gtest/gtest.h>
#include <string>

#include "support/private_device.h"
#include "support/xml_events.h"
#include "xml/document.h"

#include "platform/anxml.h"

namespace kelt::tests {
namespace {

using platform::XmlDocument;

constexpr const char* kFile = "/opt/Quorvane/list.xml";
constexpr const wchar_t* kPath = L"/opt/Quorvane/list.xml";
const std::string kDeclaration = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";

/// The document in `bytes`, written again; empty when it does not load or cannot be written.
std::string writtenAgain(const std::string& bytes) {
  const auto document = XmlDocument::load({reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size()}, "r");
  if (!document) return {};
  const auto text = document.value()->serialise();
  return text ? text.value() : "";
}

struct Document {
  const char* name;
  std::string bytes;
};

std::string nameOf(const ::testing::TestParamInfo<Document>& info) {
  return info.param.name;
}

class WellFormedDocument : public ::testing::TestWithParam<Document> {};

TEST_P(WellFormedDocument, GivesTheSameEventsAfterLoadAndWriteAndIsThenStable) {
  const std::string once = writtenAgain(GetParam().bytes);
  ASSERT_NE(XmlEvents::of(GetParam().bytes), "refused");
  EXPECT_EQ(XmlEvents::of(once), XmlEvents::of(GetParam().bytes));
  EXPECT_EQ(once.substr(0, kDeclaration.size()), kDeclaration);
  EXPECT_EQ(writtenAgain(once), once);
}

INSTANTIATE_TEST_SUITE_P(
    RoundTrip, WellFormedDocument,
    ::testing::Values(
        Document{"EmptyElement", "<r/>"}, Document{"BlanksInElement", "<r> \n\t </r>"},
        Document{"BlanksBetweenElements", "<r>\n  <a/>\n\n  <b> </b>\n</r>"},
        Document{"MixedContent", "<r>one<a>two</a>three<b/>four</r>"},
        Document{"LeadingAndTrailingBlanks", "<r>  text\n</r>"},
        Document{"Comments", "<!-- 1 --><r><!-- 2\n - --></r><!--3-->"}, Document{"EmptyComment", "<r><!----></r>"},
        Document{"Instructions", "<?a b?><r><?c  d = '?' ?><?e?></r><?f ?>"},
        Document{"Cdata", "<r><![CDATA[<a>&amp;]] ]>]]><![CDATA[]]></r>"},
        Document{"AdjacentCdata", "<r>x<![CDATA[a]]><![CDATA[b]]>y</r>"},
        Document{"CdataEndSplit", "<r><![CDATA[]]]]><![CDATA[>]]></r>"}, Document{"CdataEndEscaped", "<r>]]&gt;</r>"},
        Document{"Entities", "<r x='&lt;&gt;&amp;&quot;&apos;'>&lt;&gt;&amp;&quot;&apos;</r>"},
        Document{"References", "<r x='&#9;&#10;&#13;&#233;'>&#9;&#10;&#13;&#xE9;&#x1F600;</r>"},
        Document{"LineEnds", "<r x='a\r\nb\rc\nd\te'>a\r\nb\rc\nd<!--\r\n--><![CDATA[\r\n\r]]><?p \r\n?></r>"},
        Document{"Quotes", "<r a='\"' b=\"'\" c='&quot;&apos;'>\"'</r>"},
        Document{"AttributeOrder", "<r z='1' a='2' m='' y:b='3'/>"}, Document{"BlanksInAttribute", "<r x='  a  b  '/>"},
        Document{"GreaterThan", "<r x='a>b'>a>b</r>"},
        Document{"Prefixes", "<r><ns:SiteLists xmlns:ns='u' ns:x='1'/><a:b:c/></r>"},
        Document{"Utf8", "<r \xC3\xA9='\xE2\x82\xAC'>\xF0\x9F\x98\x80<\xC3\xA9/></r>"},
        Document{"ByteOrderMark", "\xEF\xBB\xBF<?xml version='1.0'?>\n<r>\xC3\xA9</r>"},
        Document{"Latin1", "<?xml version='1.0' encoding='ISO-8859-1'?><r x='\xE9'>\xA0\x85\xFF<!--\xE4--></r>"},
        Document{"Standalone", "<?xml version='1.1' encoding='US-ASCII' standalone='yes'?><r/>"},
        Document{"Delete", "<r>\x7F</r>"}, Document{"C1Controls", "<r>\xC2\x80\xC2\x85\xE2\x80\xA8</r>"},
        Document{"Deep",
                 [] {
                   std::string text = "<r>";
                   for (int i = 1; i < 256; ++i)
                     text = text + "<a>" + std::to_string(i);
                   for (int i = 1; i < 256; ++i)
                     text += "</a>";
                   return text + "</r>";
                 }()}),
    nameOf);

TEST(XmlRoundTrip, EmptyElementsKeepTheirForm) {
  EXPECT_EQ(writtenAgain("<r><binsphash></binsphash><a/><b x='1'></b><c x='1'/><d><e></e></d></r>"),
            kDeclaration + "<r><binsphash></binsphash><a/><b x=\"1\"></b><c x=\"1\"/><d><e></e></d></r>\n");
}

TEST(XmlRoundTrip, NodesOutsideTheRootStandOnLinesOfTheirOwn) {
  EXPECT_EQ(writtenAgain("<?xml version='1.0' standalone='no'?>\n\n<!--a--><?b?>  <r/>\n<!--c-->\n\n"),
            kDeclaration + "<!--a-->\n<?b?>\n<r/>\n<!--c-->\n");
}

class XmlValue : public PrivateDevice {
 protected:
  void SetUp() override {
    PrivateDevice::SetUp();
    ASSERT_TRUE(m_xml.useFileAlways(kPath, L"r", nullptr, nullptr));
    m_root = AnXmlNode(&m_xml);
  }

  AnXml m_xml;
  AnXmlNode m_root;
};

TEST_F(XmlValue, WhateverXmlHoldsComesBackFromAttributesAndText) {
  for (const std::wstring value :
       {L"", L" ", L"\t\n\r \r\n", L"  lead and trail  ", L"<a b='c'>&amp;</a>", L"\"quotes' & &#38;", L"]]>", L"a]]>b",
        L"-- --> <!-- ?>", L"caf\xE9 \x20AC \x1F600 \x10FFFF", L"\x7F\x80\x85\x9F\x2028\xFEFF\xFFFD", L"%s \\ \\n $"}) {
    AnXmlNode child;
    ASSERT_TRUE(m_root.addChild(&child, L"v", nullptr, value.c_str()));
    ASSERT_TRUE(child.setValue(L"x", value.c_str()));
    ASSERT_TRUE(m_xml.writeFile(kPath, false, false));

    AnXml again;
    AString text = L"unset";
    AString attribute = L"unset";
    ASSERT_TRUE(again.useExistingFile(kPath, L"r", nullptr, nullptr));
    const AnXmlNode root(&again);
    ASSERT_TRUE(root.getExistingChild(nullptr, L"v", nullptr, nullptr, nullptr, &text));
    ASSERT_TRUE(root.getExistingChild(nullptr, L"v", L"x", nullptr, nullptr, &attribute));
    EXPECT_EQ(text.str(), value);
    EXPECT_EQ(attribute.str(), value);
    ASSERT_TRUE(child.remove());
  }
}

TEST_F(XmlValue, WhatXmlCannotHoldMakesTheWriteFailAndLeavesTheFile) {
  ASSERT_TRUE(m_xml.writeFile(kPath, false, false));
  const std::string before = contentOf(kFile);
  const std::wstring kLoneUnits[] = {L"a\x01",
                                     L"\x1F",
                                     L"\x08",
                                     L"\xFFFE",
                                     L"\xFFFF",
                                     {static_cast<wchar_t>(0xD800)},
                                     {static_cast<wchar_t>(0xDFFF)},
                                     {static_cast<wchar_t>(0xDC80)},
                                     {static_cast<wchar_t>(0xD83D), static_cast<wchar_t>(0xDE00)},
                                     {static_cast<wchar_t>(0xDCC3), static_cast<wchar_t>(0xDCA9)},
                                     {static_cast<wchar_t>(0x110000)},
                                     {static_cast<wchar_t>(-1)}};
  for (const std::wstring& value : kLoneUnits) {
    ASSERT_TRUE(m_root.setValue(L"", value.c_str()));
    EXPECT_FALSE(m_xml.writeFile(kPath, false, false));
    ASSERT_TRUE(m_root.setValue(L"", L""));
    ASSERT_TRUE(m_root.setValue(L"x", value.c_str()));
    EXPECT_FALSE(m_xml.writeFile(kPath, false, false));
    ASSERT_TRUE(m_root.setValue(L"x", L""));
    AnXmlNode child;
    ASSERT_TRUE(m_root.addChild(&child, (L"n" + value).c_str(), nullptr, nullptr));
    EXPECT_FALSE(m_xml.writeFile(kPath, false, false));
    ASSERT_TRUE(child.remove());
    EXPECT_EQ(contentOf(kFile), before);
  }
  EXPECT_TRUE(m_xml.writeFile(kPath, false, false));
}

TEST_F(XmlValue, ANameThatWouldReadBackAsSomethingElseMakesTheWriteFail) {
  for (const wchar_t* name : {L"a b", L"a b='1'", L"a/", L"a>", L"a><b", L"!--", L"!--a--", L"?p?", L"1a", L"-a", L".a",
                              L"a&lt;", L"a=", L"a\"", L"a\n", L" a", L"a;", L"![CDATA[x]]", L"\x00D7"}) {
    AnXmlNode child;
    ASSERT_TRUE(m_root.addChild(&child, name, nullptr, L"t"));
    EXPECT_FALSE(m_xml.writeFile(kPath, false, false)) << std::string(name, name + std::wcslen(name));
    ASSERT_TRUE(child.remove());
    ASSERT_TRUE(m_root.addChild(&child, L"e", nullptr, nullptr));
    ASSERT_TRUE(child.setValue(name, L"t"));
    EXPECT_FALSE(m_xml.writeFile(kPath, false, false)) << std::string(name, name + std::wcslen(name));
    ASSERT_TRUE(child.remove());
    EXPECT_FALSE(exists(kFile));
  }
}

TEST_F(XmlValue, NamesWithAllTheirCharactersComeBack) {
  for (const wchar_t* name : {L"a", L"_a", L":", L"ns:a", L"A-b.c_9", L"\xE9t\xE9"}) {
    AnXmlNode child;
    ASSERT_TRUE(m_root.addChild(&child, name, nullptr, nullptr));
    ASSERT_TRUE(child.setValue(name, L"v"));
    ASSERT_TRUE(m_xml.writeFile(kPath, false, false));
    AnXml again;
    AString text;
    ASSERT_TRUE(again.useExistingFile(kPath, L"r", nullptr, nullptr));
    ASSERT_TRUE(AnXmlNode(&again).getExistingChild(nullptr, name, name, nullptr, nullptr, &text));
    EXPECT_EQ(text.str(), L"v");
  }
}

TEST_F(XmlValue, ANewRootWithANameThatXmlCannotHoldIsNotWritten) {
  AnXml xml;
  ASSERT_TRUE(xml.useFileAlways(kPath, L"a b", nullptr, nullptr));
  EXPECT_FALSE(xml.writeFile(kPath, false, false));
  EXPECT_FALSE(exists(kFile));
}

}  // namespace
}  // namespace kelt::tests
