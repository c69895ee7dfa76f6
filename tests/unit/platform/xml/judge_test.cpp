#include "xml/judge.h"

#include <array>
#include <gtest/gtest.h>
#include <span>
#include <string>
#include <string_view>
#include <utility>

namespace kelt::platform {
namespace {

using std::string_literals::operator""s;

std::span<const unsigned char> bytesOf(const std::string& text) {
  return {reinterpret_cast<const unsigned char*>(text.data()), text.size()};
}

std::string nested(int depth) {
  std::string text;
  for (int i = 0; i < depth; ++i)
    text += "<a>";
  for (int i = 0; i < depth; ++i)
    text += "</a>";
  return text;
}

/// The bytes of UTF-16 units, without a byte order mark.
std::string utf16(std::u16string_view units, bool bBigEndian) {
  std::string out;
  for (const char16_t unit : units) {
    const char high = static_cast<char>(static_cast<unsigned char>(unit >> 8U));
    const char low = static_cast<char>(static_cast<unsigned char>(unit & 0xFFU));
    out += bBigEndian ? std::string{high, low} : std::string{low, high};
  }
  return out;
}

/// UTF-16 with its byte order mark, as a file holds it.
std::string bigEndian(std::u16string_view units) {
  return "\xFE\xFF" + utf16(units, true);
}
std::string littleEndian(std::u16string_view units) {
  return "\xFF\xFE" + utf16(units, false);
}

std::string textOf(const std::vector<unsigned char>& bytes) {
  return {bytes.begin(), bytes.end()};
}

struct Document {
  const char* name;
  std::string bytes;
};

std::string nameOf(const ::testing::TestParamInfo<Document>& info) {
  return info.param.name;
}

class RefusedDocument : public ::testing::TestWithParam<Document> {};

TEST_P(RefusedDocument, IsRefusedAsMalformed) {
  const auto verdict = judgeXml(bytesOf(GetParam().bytes));
  ASSERT_FALSE(verdict.ok());
  EXPECT_EQ(verdict.error().kind, base::ErrorKind::kMalformed);
  EXPECT_EQ(verdict.error().message.rfind("XML document with ", 0), 0U) << verdict.error().message;
}

INSTANTIATE_TEST_SUITE_P(
    Structure, RefusedDocument,
    ::testing::Values(Document{"EmptyFile", ""}, Document{"OnlyBlanks", " \n"},
                      Document{"OnlyByteOrderMark", "\xEF\xBB\xBF"},
                      Document{"OnlyDeclaration", "<?xml version='1.0'?>"}, Document{"OnlyComment", "<!-- a -->"},
                      Document{"MismatchedTags", "<a><b></a></b>"}, Document{"OtherCaseInEndTag", "<a></A>"},
                      Document{"MissingEndTag", "<a><b></b>"}, Document{"MissingStartTag", "<a></b></a>"},
                      Document{"EndTagAlone", "</a>"}, Document{"TruncatedInTag", "<a><b x='1"},
                      Document{"TruncatedInText", "<a>text"}, Document{"TruncatedInComment", "<a><!-- c"},
                      Document{"TruncatedInCdata", "<a><![CDATA[ c"}, Document{"TruncatedEndTag", "<a></a"},
                      Document{"SecondRoot", "<a/><b/>"}, Document{"TextBeforeRoot", "x<a/>"},
                      Document{"TextAfterRoot", "<a/>x"}, Document{"CdataAfterRoot", "<a/><![CDATA[x]]>"},
                      Document{"ReferenceAfterRoot", "<a/>&#32;"},
                      Document{"BlankBeforeDeclaration", " <?xml version='1.0'?><a/>"},
                      Document{"SecondDeclaration", "<?xml version='1.0'?><a><?xml version='1.0'?></a>"}),
    nameOf);

INSTANTIATE_TEST_SUITE_P(
    Markup, RefusedDocument,
    ::testing::Values(Document{"DuplicateAttribute", "<a x='1' x='2'/>"},
                      Document{"AttributeWithoutQuotes", "<a x=1/>"}, Document{"AttributeWithoutValue", "<a x/>"},
                      Document{"NoBlankBetweenAttributes", "<a x='1'y='2'/>"},
                      Document{"LessThanInAttribute", "<a x='<'/>"}, Document{"BareAmpersand", "<a>R & D</a>"},
                      Document{"BareAmpersandInAttribute", "<a x='R&D'/>"}, Document{"UnknownEntity", "<a>&nbsp;</a>"},
                      Document{"ReferenceToNothing", "<a>&#;</a>"}, Document{"ReferenceToControl", "<a>&#1;</a>"},
                      Document{"ReferenceToZero", "<a>&#0;</a>"}, Document{"ReferenceToSurrogate", "<a>&#xD800;</a>"},
                      Document{"ReferenceToFfff", "<a>&#xFFFF;</a>"},
                      Document{"ReferenceBeyondUnicode", "<a>&#x110000;</a>"}, Document{"CdataEndInText", "<a>]]></a>"},
                      Document{"TwoDashesInComment", "<a><!-- - -- --></a>"}, Document{"DigitFirstInName", "<1a/>"},
                      Document{"BlankFirstInTag", "< a/>"}, Document{"ReservedInstruction", "<a><?XML x?></a>"},
                      Document{"UpperCaseVersion", "<?xml VERSION='1.0'?><a/>"},
                      Document{"VersionTwo", "<?xml version='2.0'?><a/>"},
                      Document{"VersionWithoutMinor", "<?xml version='1.'?><a/>"},
                      Document{"NoVersion", "<?xml encoding='UTF-8'?><a/>"}),
    nameOf);

INSTANTIATE_TEST_SUITE_P(
    Doctype, RefusedDocument,
    ::testing::Values(Document{"Bare", "<!DOCTYPE a><a/>"}, Document{"InternalSubset", "<!DOCTYPE a []><a/>"},
                      Document{"External", "<!DOCTYPE a SYSTEM 'file:///etc/passwd'><a/>"},
                      Document{"Public", "<!DOCTYPE a PUBLIC 'p' 'http://127.0.0.1/'><a/>"},
                      Document{"Entity", "<!DOCTYPE a [<!ENTITY e 'x'>]><a>&e;</a>"},
                      Document{"ExternalEntity", "<!DOCTYPE a [<!ENTITY e SYSTEM '/etc/passwd'>]><a>&e;</a>"},
                      Document{"ParameterEntity", "<!DOCTYPE a [<!ENTITY % e '<!ENTITY f \"x\">'> %e;]><a>&f;</a>"},
                      Document{"DefaultedAttribute", "<!DOCTYPE a [<!ATTLIST a x CDATA 'y'>]><a/>"}),
    nameOf);

INSTANTIATE_TEST_SUITE_P(
    Characters, RefusedDocument,
    ::testing::Values(
        Document{"ZeroByte", "<a>\0</a>"s}, Document{"ZeroByteAtTheEnd", "<a/>\0"s}, Document{"Control", "<a>\x01</a>"},
        Document{"FormFeed", "<a>\f</a>"}, Document{"ControlInAttribute", "<a x='\x1F'/>"},
        Document{"ControlInComment", "<a><!--\x08--></a>"}, Document{"ControlInName", "<a\x01/>"},
        Document{"NonCharacterFffe", "<a>\xEF\xBF\xBE</a>"}, Document{"NonCharacterFfff", "<a>\xEF\xBF\xBF</a>"},
        Document{"Latin1ByteWithoutDeclaration", "<a>caf\xE9</a>"},
        Document{"Latin1ByteDeclaredUtf8", "<?xml version='1.0' encoding='UTF-8'?><a>caf\xE9</a>"},
        Document{"LoneContinuationByte", "<a>\x80</a>"}, Document{"TruncatedSequence", "<a>\xE2\x82</a>"},
        Document{"OverlongSequence", "<a>\xC0\xAF</a>"}, Document{"Surrogate", "<a>\xED\xA0\x80</a>"},
        Document{"SurrogatePair", "<a>\xED\xA0\xBD\xED\xB8\x80</a>"},
        Document{"BeyondUnicode", "<a>\xF4\x90\x80\x80</a>"}, Document{"FiveByteForm", "<a>\xF8\x88\x80\x80\x80</a>"},
        Document{"InvalidInComment", "<a><!-- \xFF --></a>"}, Document{"InvalidInName", "<a\xFF/>"},
        Document{"HighByteDeclaredAscii", "<?xml version='1.0' encoding='US-ASCII'?><a>\xC3\xA9</a>"}),
    nameOf);

INSTANTIATE_TEST_SUITE_P(
    Encodings, RefusedDocument,
    ::testing::Values(Document{"Utf16BigEndianWithoutMark", utf16(u"<a/>", true)},
                      Document{"Utf16LittleEndianWithoutMark", utf16(u"<a/>", false)},
                      Document{"Utf16DeclaredWithoutMark", utf16(u"<?xml version='1.0' encoding='UTF-16'?><a/>", true)},
                      Document{"MarkAndDeclaredUtf16", "\xEF\xBB\xBF<?xml version='1.0' encoding='UTF-16'?><a/>"},
                      Document{"Utf16DeclaredOnly", "<?xml version='1.0' encoding='UTF-16'?><a/>"},
                      Document{"Utf16LittleEndianDeclaredOnly", "<?xml version='1.0' encoding='UTF-16LE'?><a/>"},
                      Document{"Utf32", "\0\0\0<\0\0\0a\0\0\0/\0\0\0>"s},
                      Document{"Utf32LittleEndianWithMark", "\xFF\xFE\0\0<\0\0\0a\0\0\0/\0\0\0>\0\0\0"s},
                      Document{"Windows1252", "<?xml version='1.0' encoding='windows-1252'?><a/>"},
                      Document{"Latin9", "<?xml version='1.0' encoding='ISO-8859-15'?><a/>"},
                      Document{"Latin1ByAnotherName", "<?xml version='1.0' encoding='latin1'?><a/>"},
                      Document{"ShiftJis", "<?xml version='1.0' encoding='Shift_JIS'?><a/>"},
                      Document{"EmptyName", "<?xml version='1.0' encoding=''?><a/>"},
                      Document{"MarkAndDeclaredLatin1", "\xEF\xBB\xBF<?xml version='1.0' encoding='ISO-8859-1'?><a/>"},
                      Document{"MarkAndDeclaredAscii", "\xEF\xBB\xBF<?xml version='1.0' encoding='US-ASCII'?><a/>"}),
    nameOf);

INSTANTIATE_TEST_SUITE_P(
    Utf16, RefusedDocument,
    ::testing::Values(Document{"OnlyTheMark", bigEndian(u"")}, Document{"OnlyHalfAMark", "\xFF"},
                      Document{"OddLength", littleEndian(u"<a/>") + "\n"},
                      Document{"OddLengthWithAZeroByte", bigEndian(u"<a/>") + '\0'},
                      Document{"TheOtherByteOrder", "\xFE\xFF" + utf16(u"<a/>", false)},
                      Document{"TwoMarks", littleEndian(u"\uFEFF<a/>")},
                      Document{"ZeroCharacter", bigEndian(u"<a>\0</a>"s)},
                      Document{"ZeroCharacterAtTheEnd", littleEndian(u"<a/>\0"s)},
                      Document{"ControlCharacter", bigEndian(u"<a>\x01</a>")},
                      Document{"NonCharacter", littleEndian(u"<a>\xFFFE</a>")},
                      Document{"LoneLead", littleEndian(u"<a>\xD83D</a>")},
                      Document{"LoneTrail", bigEndian(u"<a>\xDE00</a>")},
                      Document{"PairInTheWrongOrder", bigEndian(u"<a>\xDE00\xD83D</a>")},
                      Document{"TwoLeads", littleEndian(u"<a>\xD83D\xD83D\xDE00</a>")},
                      Document{"LoneLeadInAttribute", bigEndian(u"<a x='\xDBFF'/>")},
                      Document{"LoneTrailInComment", littleEndian(u"<a><!-- \xDC80 --></a>")},
                      Document{"TrailsThatSpellUtf8", bigEndian(u"<a>\xDCC3\xDCA9</a>")},
                      Document{"LoneLeadAtTheEnd", bigEndian(u"<a/>\xD83D")},
                      Document{"Declared8Bit", bigEndian(u"<?xml version='1.0' encoding='UTF-8'?><a/>")},
                      Document{"DeclaredLatin1", littleEndian(u"<?xml version='1.0' encoding='ISO-8859-1'?><a/>")},
                      Document{"DeclaredAscii", littleEndian(u"<?xml version='1.0' encoding='US-ASCII'?><a/>")},
                      Document{"DeclaredWithByteOrder", bigEndian(u"<?xml version='1.0' encoding='UTF-16BE'?><a/>")},
                      Document{"Doctype", bigEndian(u"<!DOCTYPE a><a/>")},
                      Document{"MismatchedTags", littleEndian(u"<a></b>")}, Document{"BytesOfUtf8", "\xFE\xFF<a/>"}),
    nameOf);

class AcceptedDocument : public ::testing::TestWithParam<Document> {};

TEST_P(AcceptedDocument, IsAcceptedAsUtf8) {
  const auto verdict = judgeXml(bytesOf(GetParam().bytes));
  ASSERT_TRUE(verdict.ok()) << verdict.error().message;
  EXPECT_EQ(textOf(verdict.value().utf8), "");
}

INSTANTIATE_TEST_SUITE_P(
    Documents, AcceptedDocument,
    ::testing::Values(Document{"Plain", "<a/>"}, Document{"BlanksAround", "\n <a/> \n"},
                      Document{"ByteOrderMark", "\xEF\xBB\xBF<a>\xC3\xA9</a>"},
                      Document{"MarkAndDeclaredUtf8", "\xEF\xBB\xBF<?xml version='1.0' encoding='UTF-8'?><a/>"},
                      Document{"LowerCaseEncoding", "<?xml version='1.0' encoding='utf-8'?><a>\xC3\xA9</a>"},
                      Document{"Ascii", "<?xml version='1.0' encoding='us-ascii'?><a>e</a>"},
                      Document{"Standalone", "<?xml version='1.0' standalone='yes'?><a/>"},
                      Document{"VersionOneDotOne", "<?xml version='1.1'?><a/>"},
                      Document{"UndeclaredPrefix", "<ns:a ns:x='1'><o:b/></ns:a>"},
                      Document{"DifferentPrefixSameName", "<a p:x='1' q:x='2'/>"},
                      Document{"Astral", "<a>\xF0\x9F\x98\x80</a>"},
                      Document{"PredefinedEntities", "<a>&lt;&gt;&amp;&quot;&apos;</a>"},
                      Document{"NameBeyondAscii", "<\xC3\xA9t\xC3\xA9/>"},
                      Document{"ByteOrderMarkAsText", "<a>\xEF\xBB\xBF</a>"},
                      Document{"Stylesheet", "<?xml-stylesheet href='x'?><a/>"}),
    nameOf);

TEST(JudgeXml, ConvertsLatin1WhereTheDeclarationSaysSo) {
  for (const char* name : {"ISO-8859-1", "iso-8859-1"}) {
    const std::string declaration = "<?xml version='1.0' encoding='"s + name + "'?>";
    const auto verdict = judgeXml(bytesOf(declaration + "<a>caf\xE9\x80</a>"));
    ASSERT_TRUE(verdict.ok()) << verdict.error().message;
    EXPECT_EQ(textOf(verdict.value().utf8), declaration + "<a>caf\xC3\xA9\xC2\x80</a>");
  }
}

TEST(JudgeXml, ConvertsUtf16OfEitherByteOrder) {
  const std::u16string text =
      u"<a x='\u00E9'>\u007F\u0080\u07FF\u0800\uD7FF\uE000\uFFFD\U00010000\U0001F600\U0010FFFD</a>\n";
  const std::string utf8 =
      "\xEF\xBB\xBF<a x='\xC3\xA9'>\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBD"
      "\xF0\x90\x80\x80\xF0\x9F\x98\x80\xF4\x8F\xBF\xBD</a>\n";
  for (const std::string& document : {bigEndian(text), littleEndian(text)}) {
    const auto verdict = judgeXml(bytesOf(document));
    ASSERT_TRUE(verdict.ok()) << verdict.error().message;
    EXPECT_EQ(textOf(verdict.value().utf8), utf8);
    EXPECT_EQ(verdict.value().bEndTags, std::vector<bool>{true});
  }
}

TEST(JudgeXml, TakesUtf16WithADeclarationOfItOrNone) {
  for (const std::u16string_view declaration :
       {u"", u"<?xml version='1.0'?>", u"<?xml version='1.0' encoding='UTF-16'?>",
        u"<?xml version=\"1.0\" encoding=\"utf-16\" standalone=\"yes\"?>\r\n"}) {
    const std::u16string document = std::u16string(declaration) + u"<a/>";
    EXPECT_TRUE(judgeXml(bytesOf(bigEndian(document))).ok());
    EXPECT_TRUE(judgeXml(bytesOf(littleEndian(document))).ok());
  }
}

TEST(JudgeXml, TakesUtf16WithoutAnyZeroByte) {
  const std::u16string text = u"<\u4E2D/>";
  EXPECT_TRUE(judgeXml(bytesOf(littleEndian(text))).ok());
}

TEST(JudgeXml, CountsTheLinesOfUtf16) {
  for (const std::u16string_view text :
       {u"<a>\n\r\n\u010A</b>\n", u"<?xml version='1.0' encoding='UTF-16'?>\n<a>\n</b>", u"\n\n<a>\xD83D\n</a>",
        u"\r\r<!DOCTYPE a>"}) {
    for (const std::string& document : {bigEndian(text), littleEndian(text)}) {
      const auto verdict = judgeXml(bytesOf(document));
      ASSERT_FALSE(verdict.ok());
      EXPECT_NE(verdict.error().message.find(" in line 3, column "), std::string::npos) << verdict.error().message;
    }
  }
}

TEST(JudgeXml, NamesHalfACharacterAndAWrongDeclaration) {
  EXPECT_EQ(judgeXml(bytesOf(bigEndian(u"<a/>") + "x")).error().message,
            "XML document with half a character of UTF-16 at its end");
  EXPECT_EQ(judgeXml(bytesOf(bigEndian(u"<?xml version='1.0' encoding='UTF-8'?><a/>"))).error().message,
            "XML document with a byte order mark of another encoding than the declared one in line 1, column 2");
}

TEST(JudgeXml, RefusesNamesInLatin1ThatItRefusesInUtf8) {
  for (const char* name : {"\xAA", "p\xB5", "\xBA", "\xD7", "a\xF7"}) {
    EXPECT_FALSE(judgeXml(bytesOf("<?xml version='1.0' encoding='ISO-8859-1'?><a><"s + name + "/></a>")).ok());
    EXPECT_FALSE(judgeXml(bytesOf("<?xml version='1.0' encoding='ISO-8859-1'?><a><?"s + name + "?></a>")).ok());
  }
  const auto letter = judgeXml(bytesOf("<?xml version='1.0' encoding='ISO-8859-1'?><\xC0/>"));
  ASSERT_TRUE(letter.ok()) << letter.error().message;
  EXPECT_TRUE(textOf(letter.value().utf8).ends_with("<\xC3\x80/>"));
}

TEST(JudgeXml, AcceptsADepthOf256AndRefuses257) {
  EXPECT_TRUE(judgeXml(bytesOf(nested(256))).ok());
  const auto verdict = judgeXml(bytesOf(nested(257)));
  ASSERT_FALSE(verdict.ok());
  EXPECT_EQ(verdict.error().message, "XML document with nesting that is too deep in line 1, column 772");
  EXPECT_FALSE(judgeXml(bytesOf(nested(100000))).ok());
}

TEST(JudgeXml, CountsDepthNotElements) {
  std::string text = "<r>";
  for (int i = 0; i < 300; ++i)
    text += "<a/><b></b>";
  EXPECT_TRUE(judgeXml(bytesOf(text + "</r>")).ok());
}

TEST(JudgeXml, TellsWhichElementsHaveAnEndTagInTheOrderInWhichTheyEnd) {
  const auto verdict = judgeXml(bytesOf("<a><b/><c></c><d><e x='1' /></d></a>"));
  ASSERT_TRUE(verdict.ok());
  EXPECT_EQ(verdict.value().bEndTags, (std::vector<bool>{false, true, false, true, true}));
}

TEST(JudgeXml, NamesTheReasonTheLineAndTheColumn) {
  const auto doctype = judgeXml(bytesOf("<?xml version='1.0'?>\n<!DOCTYPE a>\n<a/>"));
  ASSERT_FALSE(doctype.ok());
  EXPECT_EQ(doctype.error().message, "XML document with a DOCTYPE in line 2, column 12");
  const auto mismatch = judgeXml(bytesOf("<a>\n\n</b>"));
  ASSERT_FALSE(mismatch.ok());
  EXPECT_EQ(mismatch.error().message, "XML document with mismatched tag in line 3, column 3");
}

}  // namespace
}  // namespace kelt::platform
