#include "xml/judge.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <expat.h>
#include <memory>
#include <string>
#include <string_view>
#include <strings.h>
#include <type_traits>
#include <utility>

#include "xml/encoding.h"

namespace kelt::platform {
namespace {

using Parser = std::unique_ptr<std::remove_pointer_t<XML_Parser>, decltype(&XML_ParserFree)>;

/// What the bytes that Expat gets were before.
enum class XmlOrigin {
  kBytes,        ///< the same, without a byte order mark
  kMarkedBytes,  ///< the same, with that of UTF-8
  kUtf16,
  kLatin1,
};

/// What the handlers share. They run inside a C library: none of them lets an exception out.
struct Judgement {
  XML_Parser parser = nullptr;
  XmlOrigin origin = XmlOrigin::kBytes;
  unsigned depth = 0;
  bool bLatin1 = false;  ///< declared
  XmlVerdict verdict;
  const char* refusal = nullptr;  ///< why we, not Expat, refuse the document
  bool bNoMemory = false;         ///< for what is noted of it

  void refuse(const char* reason) {
    refusal = reason;
    XML_StopParser(parser, XML_FALSE);
  }
};

Judgement& judgementOf(void* userData) {
  return *static_cast<Judgement*>(userData);
}

/// XML 1.0 (fifth edition, 2.8): whatever begins with "1." is read as 1.0.
bool bVersionOne(std::string_view version) {
  return version.size() > 2 && version.substr(0, 2) == "1." &&
         std::all_of(version.begin() + 2, version.end(), [](char c) { return c >= '0' && c <= '9'; });
}

/// Names of encodings are compared without regard to case (XML 1.0, 4.3.3).
bool bNamed(const char* encoding, const char* name) {
  return ::strcasecmp(encoding, name) == 0;
}

void onDeclaration(void* userData, const char* version, const char* encoding, int /*standalone*/) {
  Judgement& judgement = judgementOf(userData);
  if (version == nullptr || !bVersionOne(version)) return judgement.refuse("a version of XML other than 1.x");
  if (encoding == nullptr || bNamed(encoding, judgement.origin == XmlOrigin::kUtf16 ? "UTF-16" : "UTF-8")) return;
  if (judgement.origin == XmlOrigin::kUtf16 || judgement.origin == XmlOrigin::kMarkedBytes) {
    return judgement.refuse("a byte order mark of another encoding than the declared one");
  }
  if (bNamed(encoding, "US-ASCII")) return;
  if (!bNamed(encoding, "ISO-8859-1")) return judgement.refuse("an encoding that is not supported");
  judgement.bLatin1 = true;
}

void onDoctype(void* userData, const char* /*name*/, const char* /*systemId*/, const char* /*publicId*/,
               int /*bInternalSubset*/) {
  // Its entities can make gigabytes of a small file, or take in other files of the device.
  judgementOf(userData).refuse("a DOCTYPE");
}

void onStart(void* userData, const char* /*name*/, const char** /*attributes*/) {
  Judgement& judgement = judgementOf(userData);
  // Whoever goes through the tree afterwards does so by recursion, on a stack that has an end.
  if (++judgement.depth > kMaxXmlDepth) judgement.refuse("nesting that is too deep");
}

void onEnd(void* userData, const char* /*name*/) {
  Judgement& judgement = judgementOf(userData);
  --judgement.depth;
  try {
    // The end of an empty-element tag is an event without bytes of its own.
    judgement.verdict.bEndTags.push_back(XML_GetCurrentByteCount(judgement.parser) != 0);
  } catch (...) {
    judgement.bNoMemory = true;
    XML_StopParser(judgement.parser, XML_FALSE);
  }
}

void installHandlers(XML_Parser parser, Judgement& judgement) {
  XML_SetUserData(parser, &judgement);
  XML_SetXmlDeclHandler(parser, onDeclaration);
  XML_SetStartDoctypeDeclHandler(parser, onDoctype);
  XML_SetElementHandler(parser, onStart, onEnd);
}

bool bStartsWithByteOrderMark(std::span<const unsigned char> document) {
  return document.size() >= 3 && document[0] == 0xEF && document[1] == 0xBB && document[2] == 0xBF;
}

Error malformed(const std::string& reason) {
  return Error{ErrorKind::kMalformed, 0, "XML document with " + reason};
}

Error failureOf(const Judgement& judgement) {
  // Before the document's own faults: it may have none.
  if (judgement.bNoMemory || XML_GetErrorCode(judgement.parser) == XML_ERROR_NO_MEMORY) return noMemoryForXml();
  const std::string reason =
      judgement.refusal != nullptr ? judgement.refusal : XML_ErrorString(XML_GetErrorCode(judgement.parser));
  return malformed(reason + " in line " + std::to_string(XML_GetCurrentLineNumber(judgement.parser)) + ", column " +
                   std::to_string(XML_GetCurrentColumnNumber(judgement.parser) + 1));
}

Result<Judgement> judgeAs(std::span<const unsigned char> document, XmlOrigin origin) {
  const bool bConverted = origin == XmlOrigin::kUtf16 || origin == XmlOrigin::kLatin1;
  // What was converted is UTF-8 by now, whatever its declaration says.
  const Parser parser(XML_ParserCreate(bConverted ? "UTF-8" : nullptr), &XML_ParserFree);
  if (!parser) return noMemoryForXml();
  Judgement judgement{parser.get(), origin, 0, false, {}, nullptr, false};
  installHandlers(parser.get(), judgement);

  // In one piece: handing over a long token in pieces makes Expat start it again each time.
  const auto* text = reinterpret_cast<const char*>(document.data());
  const XML_Status status = XML_Parse(parser.get(), text, static_cast<int>(document.size()), XML_TRUE);
  if (status != XML_STATUS_OK || judgement.refusal != nullptr) return failureOf(judgement);
  return judgement;
}

/// Judges what was converted, and keeps it. Expat judges UTF-16 itself less strictly: it passes surrogates without
/// partners. In ISO-8859-1 it takes three characters in names (0xAA, 0xB5, 0xBA) that it refuses in UTF-8; a document
/// with one of them could never be written again.
Result<XmlVerdict> judgeConverted(std::vector<unsigned char> utf8, XmlOrigin origin) {
  auto judgement = judgeAs(utf8, origin);
  if (!judgement) return judgement.error();
  XmlVerdict verdict = std::move(judgement.value().verdict);
  verdict.utf8 = std::move(utf8);
  return verdict;
}

Result<XmlVerdict> judgeBytes(std::span<const unsigned char> document) {
  // Expat would take UTF-16 without a mark; no document in it is without a zero byte, and no other document has one.
  if (std::find(document.begin(), document.end(), 0) != document.end()) return malformed("a zero byte");
  auto judgement = judgeAs(document, bStartsWithByteOrderMark(document) ? XmlOrigin::kMarkedBytes : XmlOrigin::kBytes);
  if (!judgement) return judgement.error();
  if (judgement.value().bLatin1) return judgeConverted(utf8OfLatin1(document), XmlOrigin::kLatin1);
  return std::move(judgement.value().verdict);
}

}  // namespace

Error noMemoryForXml() {
  return Error{ErrorKind::kSystem, ENOMEM, "XML document that memory does not hold"};
}

Result<XmlVerdict> judgeXml(std::span<const unsigned char> document) {
  // Expat takes the length as an int, and conversion to UTF-8 can double it.
  if (document.size() > INT_MAX / 2) return malformed("more bytes than a parser takes");
  if (!bMarkedUtf16(document)) return judgeBytes(document);
  if (document.size() % 2 != 0) return malformed("half a character of UTF-16 at its end");
  return judgeConverted(utf8OfUtf16(document), XmlOrigin::kUtf16);
}

}  // namespace kelt::platform
