#include "xml/writer.h"

#include <algorithm>
#include <string_view>

#include "xml/judge.h"

namespace kelt::platform {
namespace {

/// Whether the tokeniser of a reader takes `name` as one name. Its characters beyond ASCII, and what may stand first,
/// are the judge's to check: they cannot change where the name ends.
bool bOneName(std::string_view name) {
  const auto bFits = [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte >= 0x80 || (byte >= '0' && byte <= '9') || (byte >= 'A' && byte <= 'Z') ||
           (byte >= 'a' && byte <= 'z') || std::string_view("_:-.").find(c) != std::string_view::npos;
  };
  return !name.empty() && std::all_of(name.begin(), name.end(), bFits);
}

enum class Place { kText, kAttribute };

/// How a character must be written at `place`; empty for as it is.
std::string_view referenceFor(char c, Place place) {
  const bool bAttribute = place == Place::kAttribute;
  switch (c) {
    case '&':
      return "&amp;";
    case '<':
      return "&lt;";
    case '>':  // "]]>" must not stand in text
      return "&gt;";
    // A reader makes a line feed of it (XML 1.0, 2.11).
    case '\r':
      return "&#13;";
    case '"':
      return bAttribute ? "&quot;" : "";
    // In attributes a reader makes a blank of these two (XML 1.0, 3.3.3).
    case '\t':
      return bAttribute ? "&#9;" : "";
    case '\n':
      return bAttribute ? "&#10;" : "";
    default:
      return "";
  }
}

class Writer {
 public:
  void writeDocument(const pugi::xml_document& document) {
    // Whatever it was declared as, it is written in UTF-8; the declaration that it came with is passed over below.
    m_out = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
    for (const pugi::xml_node node : document.children()) {
      if (node.type() == pugi::node_declaration) continue;
      writeNode(node, 1);
      m_out += '\n';
    }
  }

  Result<std::string> result() && {
    if (m_refusal != nullptr) return Error{ErrorKind::kMalformed, 0, m_refusal};
    return std::move(m_out);
  }

 private:
  void writeNode(pugi::xml_node node, unsigned depth) {
    switch (node.type()) {
      case pugi::node_element:
        return writeElement(node, depth);
      case pugi::node_pcdata:
        return writeEscaped(node.value(), Place::kText);
      case pugi::node_cdata:
        return writeBetween("<![CDATA[", node.value(), "]]>");
      case pugi::node_comment:
        return writeBetween("<!--", node.value(), "-->");
      case pugi::node_pi:
        return writeInstruction(node);
      // A DOCTYPE would be all that is left, and a document with one is never held.
      default:
        return;
    }
  }

  void writeElement(pugi::xml_node element, unsigned depth) {
    // No reader of ours would take it again; and each level takes stack.
    if (depth > kMaxXmlDepth) return refuse("XML element nested too deep");
    m_out += '<';
    writeName(element.name());
    for (const pugi::xml_attribute attribute : element.attributes())
      writeAttribute(attribute);
    // One that came with an end tag has an empty text in it, and keeps the tag by that (XmlDocument::load).
    if (!element.first_child()) {
      m_out += "/>";
      return;
    }
    m_out += '>';
    for (const pugi::xml_node child : element.children())
      writeNode(child, depth + 1);
    m_out += "</";
    writeName(element.name());
    m_out += '>';
  }

  void writeAttribute(pugi::xml_attribute attribute) {
    m_out += ' ';
    writeName(attribute.name());
    m_out += "=\"";
    writeEscaped(attribute.value(), Place::kAttribute);
    m_out += '"';
  }

  void writeInstruction(pugi::xml_node instruction) {
    m_out += "<?";
    writeName(instruction.name());
    const std::string_view data = instruction.value();
    if (!data.empty()) m_out += ' ';
    m_out += data;
    m_out += "?>";
  }

  /// Unescaped: no operation sets such a content, so it is as a reader took it, and does not hold its own end.
  void writeBetween(std::string_view start, std::string_view content, std::string_view end) {
    m_out += start;
    m_out += content;
    m_out += end;
  }

  void writeEscaped(std::string_view text, Place place) {
    for (const char c : text) {
      const std::string_view reference = referenceFor(c, place);
      if (reference.empty()) {
        m_out += c;
      } else {
        m_out += reference;
      }
    }
  }

  void writeName(std::string_view name) {
    // A name with a blank in it, for instance, would come back as a name and an attribute.
    if (!bOneName(name)) return refuse("XML name that no document holds");
    m_out += name;
  }

  /// The rest is written all the same; result() gives the refusal in place of the text.
  void refuse(const char* reason) { m_refusal = reason; }

  std::string m_out;
  const char* m_refusal = nullptr;
};

}  // namespace

Result<std::string> writeXml(const pugi::xml_document& document) {
  Writer writer;
  writer.writeDocument(document);
  return std::move(writer).result();
}

}  // namespace kelt::platform
