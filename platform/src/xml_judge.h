#pragma once
// The judge of XML documents: what passes here may be held, edited and written; nothing else is.

#include <span>
#include <vector>

#include "base/result.h"

namespace kelt::platform {

/// The deepest nesting of elements accepted; the root counts as 1.
inline constexpr unsigned kMaxXmlDepth = 256;

enum class XmlEncoding {
  kUtf8,    ///< also for US-ASCII, which it contains
  kLatin1,  ///< ISO-8859-1
};

/// What a reader of an accepted document needs to know besides its bytes.
struct XmlVerdict {
  XmlEncoding encoding = XmlEncoding::kUtf8;
  /// One entry per element, in the order in which they end: whether it has an end tag of its own ("<a></a>", not
  /// "<a/>").
  std::vector<bool> bEndTags;
};

/// Judges a whole document. Accepted is what is well-formed (XML 1.0; names as in its fourth edition), without a
/// DOCTYPE, at most kMaxXmlDepth deep, and in UTF-8 (with or without a byte order mark), US-ASCII or ISO-8859-1 as
/// declared. Errors: kMalformed, with the reason and the line in the message.
[[nodiscard]] base::Result<XmlVerdict> judgeXml(std::span<const unsigned char> document);

}  // namespace kelt::platform
