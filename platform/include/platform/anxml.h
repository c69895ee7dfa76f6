#pragma once
// XML documents of the agent's toolkit (XML 1.0, characters in names as in its fourth edition; names are compared as
// written, prefix included).
//
// Accepted: well-formed UTF-8 (with or without a byte order mark), UTF-16 of either byte order with a byte order mark
// and no other encoding declared, US-ASCII, and ISO-8859-1 where the declaration says so. Refused: everything else, a
// DOCTYPE, nesting deeper than 256, and files over 64 MiB.
//
// The text of an element is that of the text and CDATA sections directly in it, joined; references are expanded. A null
// name or value counts as the empty one. Want of memory is std::bad_alloc, throughout.

#include <memory>
#include <span>
#include <string>

#include "base/result.h"
#include "platform/astring.h"

namespace kelt::platform {
class XmlDocument;
struct XmlElement;
}  // namespace kelt::platform

/// One document, loaded from a file or new.
class AnXml {
 public:
  AnXml();
  AnXml(const AnXml&) = delete;
  AnXml& operator=(const AnXml&) = delete;
  ~AnXml();

  /// Loads the file at `path`, whose root element must be named `rootName`. The last two arguments must be null.
  /// Returns false, with the document empty, for a missing file, one that is refused (see above) or another root.
  [[nodiscard]] bool useExistingFile(const wchar_t* path, const wchar_t* rootName, const wchar_t* reserved1,
                                     const wchar_t* reserved2);

  /// The same for whoever wants to know why not, with path and root name in UTF-8 and without a line in the log.
  /// Errors: kNotFound; kRefused for what is no regular file; kMalformed, with line and column; kTooLarge; kSystem.
  [[nodiscard]] kelt::Status load(const std::string& path, const std::string& rootName);

  /// The same for a document in memory.
  [[nodiscard]] kelt::Status load(std::span<const unsigned char> bytes, const std::string& rootName);

  /// The same, but a missing file starts a new document with that root. A file that is there and does not load is a
  /// failure and stays as it is.
  [[nodiscard]] bool useFileAlways(const wchar_t* path, const wchar_t* rootName, const wchar_t* reserved1,
                                   const wchar_t* reserved2);

  /// Replaces the file at `path` by this document: UTF-8 with the declaration
  /// <?xml version="1.0" encoding="UTF-8"?>, everything else as loaded and edited (an empty element keeps its form;
  /// blanks outside the root element and the kind of quotes do not). A new file gets mode 0600. Both flags must be
  /// false. Returns false when XML cannot hold a name or a value, or the document would not load again, with the
  /// file as it was, and when the file cannot be replaced (base/file_replace.h tells what stands there then). The
  /// document stays as it is.
  [[nodiscard]] bool writeFile(const wchar_t* path, bool reserved1, bool reserved2);

  /// Forgets the document; nodes of it must not be used any more.
  void close();

 private:
  friend class AnXmlNode;
  std::unique_ptr<kelt::platform::XmlDocument> m_document;
};

/// An element of a document; the document must outlive it. A default-constructed node is null: every operation on it
/// fails without effect. Copies stand for the same element.
class AnXmlNode {
 public:
  AnXmlNode();
  /// The root element of `document`, or a null node when nothing is loaded.
  explicit AnXmlNode(AnXml* document);
  AnXmlNode(const AnXmlNode& other);
  AnXmlNode& operator=(const AnXmlNode& other);
  ~AnXmlNode();

  /// Finds the first child element `name` which carries the attribute `attributeName` (null: the first of that name).
  /// Puts it into `*found`, and the attribute's value, or the element's text, into `*text`, unless these are null. The
  /// two reserved arguments must be null. Returns false, with the outputs unchanged, when there is none.
  [[nodiscard]] bool getExistingChild(AnXmlNode* found, const wchar_t* name, const wchar_t* attributeName,
                                      const wchar_t* reserved1, const wchar_t* reserved2, AString* text) const;

  /// The same operation under the name used where absence is no error.
  [[nodiscard]] bool tryGetChild(AnXmlNode* found, const wchar_t* name, const wchar_t* attributeName,
                                 const wchar_t* reserved1, const wchar_t* reserved2, AString* text) const;

  /// Appends a child element `name` with the text `text` (null: no text), and puts it into `*newChild` unless that is
  /// null. The reserved argument must be null. Returns false, with nothing changed, for an empty name and on a null
  /// node. A name that XML cannot hold shows when the document is written.
  [[nodiscard]] bool addChild(AnXmlNode* newChild, const wchar_t* name, const wchar_t* reserved, const wchar_t* text);

  /// Sets the attribute `name` to `value`, or the element's own text where `name` is empty: the text replaces all text
  /// directly in the element, in the place of the first, or comes before the child elements, which stay. A value that
  /// XML cannot hold shows when the document is written. Returns false on a null node.
  bool setValue(const wchar_t* name, const wchar_t* value);
  bool setValue(const wchar_t* name, const void* value) = delete;

  /// Takes this element, with all in it, out of its parent. Returns false on a null node, or the root. The node is null
  /// afterwards; copies of it must not be used any more.
  bool remove();

 private:
  friend class AnXmlChildIndex;
  std::unique_ptr<kelt::platform::XmlElement> m_element;
};

/// Steps through the child elements of one name, in document order. The one stepped to may be removed; those after it
/// must stay. The document must outlive the index.
class AnXmlChildIndex {
 public:
  /// Stands before the first child element `name` of `parent`; there is none where `parent` is null or a null node.
  AnXmlChildIndex(const AnXmlNode* parent, const wchar_t* name);
  AnXmlChildIndex(const AnXmlChildIndex&) = delete;
  AnXmlChildIndex& operator=(const AnXmlChildIndex&) = delete;
  ~AnXmlChildIndex();

  /// Steps to the next child (the first one at first) and stores the value of its attribute `attributeName`, or its
  /// text where that is empty, into `*text`, unless `text` is null; an attribute that is missing reads as the empty
  /// string. Returns false, with `*text` unchanged, when there is no further child.
  [[nodiscard]] bool moveNext(const wchar_t* attributeName, AString* text);

 private:
  std::unique_ptr<kelt::platform::XmlElement> m_next;
  std::string m_name;
};
