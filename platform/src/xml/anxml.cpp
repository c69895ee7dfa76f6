#include "platform/anxml.h"

#include <cerrno>
#include <new>
#include <optional>
#include <utility>

#include "xml/document.h"

#include "base/file_read.h"
#include "base/file_replace.h"
#include "base/utf.h"
#include "platform/refusals.h"

namespace {

using kelt::ErrorKind;
using kelt::Result;
using kelt::platform::XmlDocument;
using kelt::platform::XmlElement;

/// Far beyond any file of the agent; memory use is several times this.
constexpr std::size_t kMaxDocumentSize = std::size_t{64} * 1024 * 1024;

std::string pathOf(const wchar_t* path) {
  return kelt::base::toUtf8(path);
}

/// Text for a document. A unit that is no character (a surrogate, or beyond Unicode) becomes a byte that is valid in no
/// document, so that it makes the write fail; the general conversion would turn two of them into a character.
std::string xmlTextOf(const wchar_t* text) {
  if (text == nullptr) return {};
  std::string out;
  for (; *text != L'\0'; ++text) {
    const auto unit = static_cast<char32_t>(*text);
    const bool bCharacter = unit < 0xD800 || (unit > 0xDFFF && unit <= 0x10FFFF);
    out += bCharacter ? kelt::base::toUtf8({text, 1}) : "\xFF";
  }
  return out;
}

bool bGiven(const wchar_t* text) {
  return text != nullptr && *text != L'\0';
}

/// What is wrong with a document for want of memory says nothing about it, and a caller who takes it for malformed may
/// well replace it.
Result<std::unique_ptr<XmlDocument>> orNoMemory(Result<std::unique_ptr<XmlDocument>> document) {
  if (!document && document.error().sysErrno == ENOMEM) throw std::bad_alloc();
  return document;
}

Result<std::unique_ptr<XmlDocument>> readDocument(const std::string& path, const std::string& rootName) {
  const auto bytes = kelt::base::readFile(path, kMaxDocumentSize);
  return bytes ? XmlDocument::load(bytes.value(), rootName) : bytes.error();
}

Result<std::unique_ptr<XmlDocument>> loadFile(const wchar_t* path, const wchar_t* rootName) {
  const std::string file = pathOf(path);
  auto document = readDocument(file, xmlTextOf(rootName));
  if (!document) kelt::platform::logRefusal(file, document.error());
  return orNoMemory(std::move(document));
}

std::string valueOf(pugi::xml_node node, const std::string& attribute) {
  return attribute.empty() ? kelt::platform::textOf(node) : node.attribute(attribute.c_str()).value();
}

std::unique_ptr<XmlElement> copyOf(const std::unique_ptr<XmlElement>& element) {
  return element ? std::make_unique<XmlElement>(*element) : nullptr;
}

std::unique_ptr<XmlElement> elementOf(XmlDocument* document, pugi::xml_node node) {
  return node ? std::make_unique<XmlElement>(XmlElement{document, node}) : nullptr;
}

}  // namespace

AnXml::AnXml() = default;
AnXml::~AnXml() = default;

bool AnXml::useExistingFile(const wchar_t* path, const wchar_t* rootName, const wchar_t* reserved1,
                            const wchar_t* reserved2) {
  // First, so that after a failure no question is answered by the document before.
  close();
  if (!bGiven(path) || !bGiven(rootName) || reserved1 != nullptr || reserved2 != nullptr) return false;
  auto document = loadFile(path, rootName);
  if (!document) return false;
  m_document = std::move(document).value();
  return true;
}

kelt::Status AnXml::load(const std::string& path, const std::string& rootName) {
  close();
  auto document = orNoMemory(readDocument(path, rootName));
  if (!document) return document.error();
  m_document = std::move(document).value();
  return {};
}

kelt::Status AnXml::load(std::span<const unsigned char> bytes, const std::string& rootName) {
  close();
  auto document = orNoMemory(XmlDocument::load(bytes, rootName));
  if (!document) return document.error();
  m_document = std::move(document).value();
  return {};
}

bool AnXml::useFileAlways(const wchar_t* path, const wchar_t* rootName, const wchar_t* reserved1,
                          const wchar_t* reserved2) {
  close();
  if (!bGiven(path) || !bGiven(rootName) || reserved1 != nullptr || reserved2 != nullptr) return false;
  auto document = loadFile(path, rootName);
  // Only where nothing stands: a file that is refused may hold what somebody still needs.
  if (!document && document.error().kind != ErrorKind::kNotFound) return false;
  m_document = document ? std::move(document).value() : XmlDocument::create(xmlTextOf(rootName));
  return true;
}

bool AnXml::writeFile(const wchar_t* path, bool reserved1, bool reserved2) {
  if (!m_document || !bGiven(path) || reserved1 || reserved2) return false;
  // That judges its own outcome: what no reader would take must not replace what they can read.
  const auto text = m_document->serialise();
  return text.ok() && kelt::base::replaceFile(pathOf(path), text.value()).ok();
}

void AnXml::close() {
  m_document.reset();
}

AnXmlNode::AnXmlNode() = default;
AnXmlNode::~AnXmlNode() = default;

AnXmlNode::AnXmlNode(AnXml* document) {
  if (document == nullptr || !document->m_document) return;
  m_element = elementOf(document->m_document.get(), document->m_document->root());
}

AnXmlNode::AnXmlNode(const AnXmlNode& other) {
  *this = other;
}

AnXmlNode& AnXmlNode::operator=(const AnXmlNode& other) {
  if (this != &other) m_element = copyOf(other.m_element);
  return *this;
}

bool AnXmlNode::getExistingChild(AnXmlNode* found, const wchar_t* name, const wchar_t* attributeName,
                                 const wchar_t* reserved1, const wchar_t* reserved2, AString* text) const {
  if (!m_element || reserved1 != nullptr || reserved2 != nullptr) return false;
  const std::string attribute = xmlTextOf(attributeName);
  XmlDocument* document = m_element->document;
  const pugi::xml_node child = document->findChild(m_element->node, xmlTextOf(name), attribute);
  if (!child) return false;
  if (text != nullptr) *text = kelt::base::toWide(valueOf(child, attribute));
  if (found != nullptr) found->m_element = elementOf(document, child);
  return true;
}

bool AnXmlNode::tryGetChild(AnXmlNode* found, const wchar_t* name, const wchar_t* attributeName,
                            const wchar_t* reserved1, const wchar_t* reserved2, AString* text) const {
  return getExistingChild(found, name, attributeName, reserved1, reserved2, text);
}

bool AnXmlNode::addChild(AnXmlNode* newChild, const wchar_t* name, const wchar_t* reserved, const wchar_t* text) {
  if (!m_element || reserved != nullptr) return false;
  XmlDocument* document = m_element->document;
  const auto content = text == nullptr ? std::nullopt : std::optional(xmlTextOf(text));
  const pugi::xml_node child = document->addChild(m_element->node, xmlTextOf(name), content);
  if (!child) return false;
  if (newChild != nullptr) newChild->m_element = elementOf(document, child);
  return true;
}

bool AnXmlNode::setValue(const wchar_t* name, const wchar_t* value) {
  if (!m_element) return false;
  const std::string text = xmlTextOf(value);
  if (!bGiven(name)) return m_element->document->setText(m_element->node, text);
  return m_element->document->setAttribute(m_element->node, xmlTextOf(name), text);
}

bool AnXmlNode::remove() {
  if (!m_element || !m_element->document->remove(m_element->node)) return false;
  // The element is no more, so this node stands for none.
  m_element.reset();
  return true;
}

AnXmlChildIndex::AnXmlChildIndex(const AnXmlNode* parent, const wchar_t* name) : m_name(xmlTextOf(name)) {
  if (parent == nullptr || !parent->m_element) return;
  XmlDocument* document = parent->m_element->document;
  m_next = elementOf(document, document->findChild(parent->m_element->node, m_name, {}));
}

AnXmlChildIndex::~AnXmlChildIndex() = default;

bool AnXmlChildIndex::moveNext(const wchar_t* attributeName, AString* text) {
  if (!m_next) return false;
  if (text != nullptr) *text = kelt::base::toWide(valueOf(m_next->node, xmlTextOf(attributeName)));
  m_next = elementOf(m_next->document, kelt::platform::nextElement(m_next->node, m_name));
  return true;
}
