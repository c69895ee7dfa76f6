#pragma once
// A document that is held and edited: what AnXml is the edge of. Text is UTF-8 throughout.

#include <memory>
#include <optional>
#include <pugixml.hpp>
#include <span>
#include <string>

#include "base/result.h"

namespace kelt::platform {

/// One XML document with a root element. Nodes are handles of it, valid until they are removed or the document ends.
/// What changes a document throws std::bad_alloc for want of memory; it may have changed by then and is not to be
/// written.
class XmlDocument {
 public:
  /// Holds the document in `bytes`. Errors: kMalformed when it is refused (xml/judge.h) or its root is not `rootName`;
  /// kSystem for want of memory.
  [[nodiscard]] static Result<std::unique_ptr<XmlDocument>> load(std::span<const unsigned char> bytes,
                                                                 const std::string& rootName);

  /// A new document with an empty root element.
  [[nodiscard]] static std::unique_ptr<XmlDocument> create(const std::string& rootName);

  XmlDocument(const XmlDocument&) = delete;
  XmlDocument& operator=(const XmlDocument&) = delete;
  ~XmlDocument() = default;

  /// The document as bytes (xml/writer.h) that load() accepts. Errors: kMalformed when it holds what no document can.
  [[nodiscard]] Result<std::string> serialise() const;

  /// The root element, which is never null.
  [[nodiscard]] pugi::xml_node root() const { return m_tree.document_element(); }

  /// The first child element `name` of `parent` which carries `attribute` (empty: the first of that name), or null.
  /// Removing the child found and searching again goes on where this search ended, so that removing all children of a
  /// name one by one takes time in proportion to the document.
  [[nodiscard]] pugi::xml_node findChild(pugi::xml_node parent, const std::string& name, const std::string& attribute);

  /// Appends a child element, without text, or with `text`, which may be empty. Returns null, with nothing changed, for
  /// an empty name. Whether a document can hold the name and the text shows when it is serialised; so below.
  pugi::xml_node addChild(pugi::xml_node parent, const std::string& name, const std::optional<std::string>& text);

  /// Sets an attribute, added at the end where it is missing.
  bool setAttribute(pugi::xml_node element, const std::string& name, const std::string& value);

  /// Replaces all text and CDATA sections directly in `element` by one text, at the place of the first of them, or
  /// before all other children. These stay.
  bool setText(pugi::xml_node element, const std::string& text);

  /// Takes an element out of its parent and releases it. Returns false for the root.
  bool remove(pugi::xml_node element);

 private:
  /// Where the last search ended: no child of `parent` before `next` is what was searched for. Any change of the
  /// document ends its life, except the removal of `next` itself.
  struct SearchHint {
    pugi::xml_node parent;
    std::string name;
    std::string attribute;
    pugi::xml_node next;
  };

  XmlDocument() = default;

  pugi::xml_document m_tree;
  std::optional<SearchHint> m_hint;
};

/// The text and CDATA sections directly in `element`, joined.
[[nodiscard]] std::string textOf(pugi::xml_node element);

/// The next child element of the same parent with this name, or null.
[[nodiscard]] pugi::xml_node nextElement(pugi::xml_node element, const std::string& name);

/// An element together with its document; what AnXmlNode hides.
struct XmlElement {
  XmlDocument* document = nullptr;
  pugi::xml_node node;
};

}  // namespace kelt::platform
