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

/// Looks for what pugixml would write although no reader could read it back.
class Inspection : public pugi::xml_tree_walker {
 public:
  bool for_each(pugi::xml_node& node) override {
    if (node.type() != pugi::node_element) return true;
    if (depth() >= static_cast<int>(kMaxXmlDepth)) m_refusal = "XML element nested too deep";
    const auto attributes = node.attributes();
    const bool bNamed =
        bOneName(node.name()) && std::all_of(attributes.begin(), attributes.end(),
                                             [](pugi::xml_attribute attribute) { return bOneName(attribute.name()); });
    if (!bNamed) m_refusal = "XML name that no document holds";
    return m_refusal == nullptr;
  }

  /// Why the document cannot be written; null where it can.
  [[nodiscard]] const char* refusal() const { return m_refusal; }

 private:
  const char* m_refusal = nullptr;
};

/// Takes what pugixml writes. A carriage return, which it writes as it is in text, is one that came in as a reference
/// or from us, as a reader makes all others line feeds; in whatever is not text there can be none.
class Bytes : public pugi::xml_writer {
 public:
  explicit Bytes(std::string& out) : m_out(out) {}

  void write(const void* data, std::size_t size) override {
    std::string_view piece(static_cast<const char*>(data), size);
    for (std::size_t end = piece.find('\r'); end != std::string_view::npos; end = piece.find('\r')) {
      m_out.append(piece.substr(0, end)).append("&#13;");
      piece.remove_prefix(end + 1);
    }
    m_out.append(piece);
  }

 private:
  std::string& m_out;
};

}  // namespace

Result<std::string> writeXml(const pugi::xml_document& document) {
  Inspection inspection;
  document.root().traverse(inspection);
  if (inspection.refusal() != nullptr) return Error{ErrorKind::kMalformed, 0, inspection.refusal()};
  std::string out = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
  Bytes bytes(out);
  for (const pugi::xml_node node : document.children()) {
    if (node.type() == pugi::node_declaration) continue;
    node.print(bytes, "", pugi::format_raw, pugi::encoding_utf8);
    out += '\n';
  }
  return out;
}

}  // namespace kelt::platform
