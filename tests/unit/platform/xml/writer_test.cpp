#include "xml/writer.h"

#include <array>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <string_view>

#include "support/xml_events.h"
#include "xml/document.h"
#include "xml/judge.h"

namespace kelt::platform {
namespace {

using tests::XmlEvents;

const std::string kDeclaration = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";

/// What writeXml makes of the tree that pugixml makes of `text`.
std::string written(const std::string& text) {
  pugi::xml_document document;
  EXPECT_TRUE(document.load_buffer(text.data(), text.size(), pugi::parse_full | pugi::parse_ws_pcdata));
  const auto bytes = writeXml(document);
  return bytes ? bytes.value() : bytes.error().message;
}

TEST(XmlWriter, WritesEveryKindOfNode) {
  EXPECT_EQ(
      written("<?xml version='1.1' encoding='UTF-8'?><!--a--><r  x = '1'> t<a/><![CDATA[<&]]><?p d ?><!-- c --></r>"),
      kDeclaration + "<!--a-->\n<r x=\"1\"> t<a/><![CDATA[<&]]><?p d ?><!-- c --></r>\n");
}

TEST(XmlWriter, WritesReferencesWhereAReaderWouldSeeSomethingElse) {
  EXPECT_EQ(written("<r x='&lt;&amp;&quot;&apos;>&#9;&#10;&#13;'>&lt;&amp;\"'&gt;\t\n&#13;]]&gt;</r>"),
            kDeclaration + "<r x=\"&lt;&amp;&quot;'&gt;&#9;&#10;&#13;\">&lt;&amp;\"'&gt;\t\n&#13;]]&gt;</r>\n");
}

TEST(XmlWriter, WritesAReferenceForEachOfManyCarriageReturnsInALongText) {
  std::string text;
  std::string expected;
  for (int i = 0; i < 20000; ++i) {
    text += "&#13;" + std::string(static_cast<std::size_t>(i % 7), 'x');
    expected += "&#13;" + std::string(static_cast<std::size_t>(i % 7), 'x');
  }
  EXPECT_EQ(written("<r>" + text + "</r>"), kDeclaration + "<r>" + expected + "</r>\n");
}

TEST(XmlWriter, RefusesWhatIsTooDeepAndWhatIsNoName) {
  pugi::xml_document document;
  pugi::xml_node node = document.append_child("r");
  for (unsigned depth = 1; depth < kMaxXmlDepth; ++depth)
    node = node.append_child("a");
  EXPECT_TRUE(writeXml(document).ok());
  pugi::xml_node deepest = node.append_child("a");
  EXPECT_EQ(writeXml(document).error().message, "XML element nested too deep");
  node.remove_child(deepest);
  for (const char* name : {"", "a b", "a=", "a>", "a/", "!--", "?", "a\"", "a&amp;"}) {
    pugi::xml_attribute attribute = node.append_attribute("b");
    attribute.set_name(name);
    EXPECT_EQ(writeXml(document).error().message, "XML name that no document holds") << name;
    node.remove_attribute(attribute);
    pugi::xml_node child = node.parent().append_child("b");
    child.set_name(name);
    EXPECT_EQ(writeXml(document).error().message, "XML name that no document holds") << name;
    child.parent().remove_child(child);
  }
  EXPECT_TRUE(writeXml(document).ok());
}

/// Makes up documents; the same number makes the same one.
class RandomDocument {
 public:
  explicit RandomDocument(unsigned number) : m_random(number) {}

  std::string text() {
    std::string text = m_random() % 2 == 0 ? "<?xml version='1.0'?>" : "";
    if (m_random() % 4 == 0) text += between();
    return text + element(0, "r") + (m_random() % 4 == 0 ? between() : "");
  }

 private:
  using Choices = std::array<std::string_view, 16>;

  std::string oneOf(const Choices& choices) { return std::string(choices.at(m_random() % choices.size())); }

  /// Pieces that stand in text and attribute values alike.
  std::string characters() {
    static constexpr Choices kPieces{"a",     "b c",  " ",      "\t",    "\n",    "\r\n",     "\r", "&lt;",
                                     "&amp;", "&gt;", "&quot;", "&#13;", "&#10;", "\xC3\xA9", ">",  "&#x1F600;"};
    std::string text;
    for (auto count = m_random() % 8; count > 0; --count)
      text += oneOf(kPieces);
    return text.find("]]>") == std::string::npos ? text : "";
  }

  std::string attributes() {
    std::string text;
    for (auto count = m_random() % 4; count > 0; --count)
      text += " n" + std::to_string(count) + (m_random() % 2 == 0 ? "='" : " = '") + characters() + "'";
    return text;
  }

  std::string between() {
    switch (m_random() % 4) {
      case 0:
        return "<!-- c\r\n" + std::to_string(m_random()) + " -->";
      case 1:
        return "<?p " + std::to_string(m_random()) + " ?>";
      case 2:
        return "<?q?>";
      default:
        return " \n ";
    }
  }

  std::string content(int depth) {
    switch (m_random() % 6) {
      case 0:
        return "<![CDATA[<" + std::to_string(m_random()) + "&]]>";
      case 1:
        return between();
      case 2:
      case 3:
        return characters();
      default:
        return depth < 6 ? element(depth + 1, "e") : "";
    }
  }

  std::string element(int depth, const std::string& name) {
    const std::string start = "<" + name + attributes();
    if (m_random() % 5 == 0) return start + "/>";
    std::string text = start + " >";
    for (auto count = m_random() % 6; count > 0; --count)
      text += content(depth);
    return text + "</" + name + ">";
  }

  std::minstd_rand m_random;
};

std::string loadedAndWritten(const std::string& text) {
  const auto document = XmlDocument::load({reinterpret_cast<const unsigned char*>(text.data()), text.size()}, "r");
  if (!document) return document.error().message;
  const auto bytes = document.value()->serialise();
  return bytes ? bytes.value() : bytes.error().message;
}

std::size_t countOf(std::string_view part, std::string_view text) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != std::string_view::npos; at = text.find(part, at + 1))
    ++count;
  return count;
}

TEST(XmlWriter, GivesAReaderTheSameEventsForRandomDocuments) {
  for (unsigned number = 1; number <= 3000; ++number) {
    const std::string text = RandomDocument(number).text();
    const std::string events = XmlEvents::of(text);
    ASSERT_NE(events, "refused") << text;
    const std::string once = loadedAndWritten(text);
    ASSERT_EQ(XmlEvents::of(once), events) << text;
    ASSERT_EQ(loadedAndWritten(once), once) << text;
    ASSERT_EQ(once.find('\r'), std::string::npos) << text;
    // Events do not tell the two forms of an empty element.
    ASSERT_EQ(countOf("</e>", once), countOf("</e>", text)) << text;
  }
}

}  // namespace
}  // namespace kelt::platform
