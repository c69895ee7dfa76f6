#pragma once
// XML documents as bytes.

#include <pugixml.hpp>
#include <string>

#include "base/result.h"

namespace kelt::platform {

/// The bytes of `document`: UTF-8, the declaration <?xml version="1.0" encoding="UTF-8"?>, then every node in its
/// order, with a line end after the declaration and after each node outside the root element, and nothing added inside.
/// Tabs and line ends in attribute values, and carriage returns in text, are written as references, so that a reader
/// gets exactly what the document holds. An element without any child node is written as "<a/>", one with an empty text
/// as "<a></a>". The declaration that the document had is left out. Errors: kMalformed for a name that would not read
/// back as this name, and for nesting that is too deep (kMaxXmlDepth). Values are not validated: judge the bytes
/// (xml/judge.h) before they are used. Throws std::bad_alloc for want of memory.
[[nodiscard]] Result<std::string> writeXml(const pugi::xml_document& document);

}  // namespace kelt::platform
