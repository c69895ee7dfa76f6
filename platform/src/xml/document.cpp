#include "xml/document.h"

#include <new>
#include <vector>

#include "xml/judge.h"
#include "xml/writer.h"

namespace kelt::platform {
namespace {

bool bText(pugi::xml_node node) {
  return node.type() == pugi::node_pcdata || node.type() == pugi::node_cdata;
}

bool bElement(pugi::xml_node node, const std::string& name) {
  return node.type() == pugi::node_element && name == node.name();
}

/// pugixml says that it lacks memory by a null node or a false result, which would be a piece of the document missing.
template <typename Made>
Made made(Made result) {
  if (!result) throw std::bad_alloc();
  return result;
}

/// Gives each empty element that was written with an end tag an empty text, which keeps that form when it is written
/// again: other tools of the agent fill in "<name></name>" by text search. Elements end in the order of `bEndTags`, of
/// which `ended` have ended so far. Returns false when there are more elements than that.
/// Recursion ends at kMaxXmlDepth, which the judge has held the document to.
bool keepEndTags(pugi::xml_node element, const std::vector<bool>& bEndTags, std::size_t& ended) {
  for (const pugi::xml_node child : element.children()) {
    if (child.type() == pugi::node_element && !keepEndTags(child, bEndTags, ended)) return false;
  }
  if (ended == bEndTags.size()) return false;
  if (bEndTags[ended++] && !element.first_child()) made(element.append_child(pugi::node_pcdata));
  return true;
}

Error notHeld() {
  return Error{ErrorKind::kMalformed, 0, "XML document that cannot be held"};
}

pugi::xml_node firstText(pugi::xml_node element) {
  pugi::xml_node child = element.first_child();
  while (child && !bText(child))
    child = child.next_sibling();
  return child;
}

pugi::xml_node removeText(pugi::xml_node text) {
  const pugi::xml_node next = text.next_sibling();
  text.parent().remove_child(text);
  return next;
}

}  // namespace

Result<std::unique_ptr<XmlDocument>> XmlDocument::load(std::span<const unsigned char> bytes,
                                                       const std::string& rootName) {
  auto verdict = judgeXml(bytes);
  if (!verdict) return verdict.error();

  std::unique_ptr<XmlDocument> document(new XmlDocument);
  // The very bytes that were judged: a conversion of pugixml's own could read them otherwise.
  const std::span<const unsigned char> utf8 = verdict.value().utf8.empty() ? bytes : verdict.value().utf8;
  constexpr unsigned kKeepAll = pugi::parse_full | pugi::parse_ws_pcdata;
  const auto held = document->m_tree.load_buffer(utf8.data(), utf8.size(), kKeepAll, pugi::encoding_utf8);
  if (held.status == pugi::status_out_of_memory) return noMemoryForXml();
  if (!held) return notHeld();
  if (!bElement(document->root(), rootName)) {
    return Error{ErrorKind::kMalformed, 0, "XML document with another root element than " + rootName};
  }
  std::size_t ended = 0;
  const std::vector<bool>& bEndTags = verdict.value().bEndTags;
  // Where judge and holder do not count the same elements, one of them has read something else than the other.
  if (!keepEndTags(document->root(), bEndTags, ended) || ended != bEndTags.size()) return notHeld();
  return document;
}

std::unique_ptr<XmlDocument> XmlDocument::create(const std::string& rootName) {
  std::unique_ptr<XmlDocument> document(new XmlDocument);
  made(made(document->m_tree.append_child(pugi::node_element)).set_name(rootName.c_str()));
  return document;
}

Result<std::string> XmlDocument::serialise() const {
  auto text = writeXml(m_tree);
  if (!text) return text;
  const std::string& written = text.value();
  // Values that XML cannot hold (U+0001, a lone surrogate) show here, while the file is still as it was.
  const auto verdict = judgeXml({reinterpret_cast<const unsigned char*>(written.data()), written.size()});
  if (!verdict) return verdict.error();
  return text;
}

pugi::xml_node XmlDocument::findChild(pugi::xml_node parent, const std::string& name, const std::string& attribute) {
  // Without the hint, removing all children of a name one by one would walk over what is left of the earlier ones each
  // time.
  const bool bGoesOn = m_hint && m_hint->parent == parent && m_hint->name == name && m_hint->attribute == attribute;
  pugi::xml_node child = bGoesOn ? m_hint->next : parent.first_child();
  const auto bFound = [&] {
    return bElement(child, name) && (attribute.empty() || child.attribute(attribute.c_str()));
  };
  while (child && !bFound())
    child = child.next_sibling();
  m_hint = SearchHint{parent, name, attribute, child};
  return child;
}

pugi::xml_node XmlDocument::addChild(pugi::xml_node parent, const std::string& name,
                                     const std::optional<std::string>& text) {
  if (name.empty()) return {};
  // A search that has come to its end must find the new element.
  m_hint.reset();
  pugi::xml_node child = made(parent.append_child(pugi::node_element));
  made(child.set_name(name.c_str()));
  // An empty text too makes the element one with an end tag.
  if (text) made(made(child.append_child(pugi::node_pcdata)).set_value(text->c_str()));
  return child;
}

bool XmlDocument::setAttribute(pugi::xml_node element, const std::string& name, const std::string& value) {
  // From now on a search by this attribute has to find the element.
  m_hint.reset();
  pugi::xml_attribute attribute = element.attribute(name.c_str());
  if (!attribute) {
    attribute = made(element.append_attribute(""));
    made(attribute.set_name(name.c_str()));
  }
  return made(attribute.set_value(value.c_str()));
}

bool XmlDocument::setText(pugi::xml_node element, const std::string& text) {
  m_hint.reset();
  // In the place of the first one, so that comments and elements keep their order around it.
  const pugi::xml_node first = firstText(element);
  pugi::xml_node added =
      made(first ? element.insert_child_before(pugi::node_pcdata, first) : element.prepend_child(pugi::node_pcdata));
  made(added.set_value(text.c_str()));
  for (pugi::xml_node child = added.next_sibling(); child;) {
    child = bText(child) ? removeText(child) : child.next_sibling();
  }
  return true;
}

bool XmlDocument::remove(pugi::xml_node element) {
  if (element == root()) return false;
  if (m_hint && m_hint->next == element) {
    m_hint->next = element.next_sibling();
  } else {
    m_hint.reset();
  }
  return element.parent().remove_child(element);
}

std::string textOf(pugi::xml_node element) {
  std::string text;
  for (const pugi::xml_node child : element.children()) {
    // Comments and elements part a text, and are none of it.
    if (bText(child)) text += child.value();
  }
  return text;
}

pugi::xml_node nextElement(pugi::xml_node element, const std::string& name) {
  do {
    element = element.next_sibling();
  } while (element && !bElement(element, name));
  return element;
}

}  // namespace kelt::platform
