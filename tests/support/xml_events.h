#pragma once
// What a reader sees in an XML document, as text to compare: one line per event. The declaration, the form of an empty
// element and blanks outside the root element are no events.

#include <expat.h>
#include <string>
#include <string_view>

namespace kelt::tests {

/// Collects the events of one document.
class XmlEvents {
 public:
  /// The events of `document`, or "refused" when it is not well-formed.
  [[nodiscard]] static std::string of(std::string_view document) {
    XmlEvents events;
    XML_Parser parser = XML_ParserCreate(nullptr);
    XML_SetUserData(parser, &events);
    XML_SetElementHandler(parser, onStart, onEnd);
    XML_SetCharacterDataHandler(parser, onText);
    XML_SetCdataSectionHandler(parser, onCdataStart, onCdataEnd);
    XML_SetCommentHandler(parser, onComment);
    XML_SetProcessingInstructionHandler(parser, onInstruction);
    const bool bRead = XML_Parse(parser, document.data(), static_cast<int>(document.size()), 1) == XML_STATUS_OK;
    XML_ParserFree(parser);
    events.endText();
    return bRead ? events.m_lines : "refused";
  }

 private:
  static XmlEvents& self(void* user) { return *static_cast<XmlEvents*>(user); }

  static void onStart(void* user, const char* name, const char** attributes) {
    std::string line = std::string("start ") + name;
    for (; *attributes != nullptr; attributes += 2)
      line += std::string(" ") + attributes[0] + "=[" + attributes[1] + "]";
    self(user).add(line);
  }
  static void onEnd(void* user, const char* name) { self(user).add(std::string("end ") + name); }
  static void onText(void* user, const char* text, int length) {
    self(user).m_text.append(text, static_cast<std::size_t>(length));
  }
  static void onCdataStart(void* user) { self(user).add("CDATA"); }
  static void onCdataEnd(void* user) { self(user).add("CDATA end"); }
  static void onComment(void* user, const char* text) { self(user).add(std::string("comment [") + text + "]"); }
  static void onInstruction(void* user, const char* target, const char* data) {
    self(user).add(std::string("instruction ") + target + " [" + data + "]");
  }

  void add(const std::string& line) {
    endText();
    addLine(line);
  }

  /// Adds a line, line ends in it spelled so that they end none.
  void addLine(const std::string& line) {
    for (const char c : line)
      m_lines += c == '\n' ? "\\n" : c == '\\' ? "\\\\" : std::string(1, c);
    m_lines += '\n';
  }

  void endText() {
    if (!m_text.empty()) addLine("text [" + m_text + "]");
    m_text.clear();
  }

  std::string m_lines;
  std::string m_text;
};

}  // namespace kelt::tests
