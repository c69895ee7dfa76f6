#pragma once
// The judge of XML documents: what passes here may be held, edited and written; nothing else is.

#include <span>
#include <vector>

#include "base/result.h"

namespace kelt::platform {

/// The deepest nesting of elements accepted; the root counts as 1.
inline constexpr unsigned kMaxXmlDepth = 256;

/// What a reader of an accepted document needs to know besides its bytes.
struct XmlVerdict {
  /// The document in UTF-8, where it is in another encoding, its declaration as it stands; empty where the document's
  /// own bytes are UTF-8.
  std::vector<unsigned char> utf8;
  /// One entry per element, in the order in which they end: whether it has an end tag of its own ("<a></a>", not
  /// "<a/>").
  std::vector<bool> bEndTags;
};

/// Judges a whole document. Accepted is what is well-formed (XML 1.0; names as in its fourth edition), without a
/// DOCTYPE, at most kMaxXmlDepth deep, and in one of these encodings: UTF-8 (with or without a byte order mark),
/// US-ASCII or ISO-8859-1 as declared, and UTF-16 (RFC 2781) of either byte order with a byte order mark and with no
/// other encoding declared. Errors: kMalformed, with the reason, and line and column where one is at fault (counted
/// from 1), in the message; kSystem for want of memory.
[[nodiscard]] Result<XmlVerdict> judgeXml(std::span<const unsigned char> document);

/// The error of a document for which there is too little memory, which says nothing about the document.
[[nodiscard]] Error noMemoryForXml();

}  // namespace kelt::platform
