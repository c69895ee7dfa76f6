#include "xml_judge.h"

#include <algorithm>
#include <climits>
#include <expat.h>
#include <memory>
#include <string>
#include <string_view>
#include <strings.h>
#include <type_traits>
#include <utility>

namespace kelt::platform {
namespace {

using base::Error;
using base::ErrorKind;
using base::Result;

using Parser = std::unique_ptr<std::remove_pointer_t<XML_Parser>, decltype(&XML_ParserFree)>;

/// What the handlers share. They run inside a C library: none of them lets an exception out.
struct Judgement {
  XML_Parser parser = nullptr;
  bool bByteOrderMark = false;
  unsigned depth = 0;
  XmlVerdict verdict;
  const char* refusal = nullptr;  ///< why we, not Expat, refuse the document

  void refuse(const char* reason) {
    refusal = reason;
    XML_StopParser(parser, XML_FALSE);
  }
};

Judgement& judgementOf(void* userData) {
  return *static_cast<Judgement*>(userData);
}

bool bVersionOne(std::string_view version) {
  return version.size() > 2 && version.substr(0, 2) == "1." &&
         std::all_of(version.begin() + 2, version.end(), [](char c) { return c >= '0' && c <= '9'; });
}

void onDeclaration(void* userData, const char* version, const char* encoding, int /*standalone*/) {
  Judgement& judgement = judgementOf(userData);
  if (version == nullptr || !bVersionOne(version)) return judgement.refuse("a version of XML other than 1.x");
  if (encoding == nullptr || ::strcasecmp(encoding, "UTF-8") == 0) return;
  if (judgement.bByteOrderMark) return judgement.refuse("a byte order mark of another encoding than the declared one");
  if (::strcasecmp(encoding, "US-ASCII") == 0) return;
  if (::strcasecmp(encoding, "ISO-8859-1") != 0) return judgement.refuse("an encoding that is not supported");
  judgement.verdict.encoding = XmlEncoding::kLatin1;
}

void onDoctype(void* userData, const char* /*name*/, const char* /*systemId*/, const char* /*publicId*/,
               int /*bInternalSubset*/) {
  judgementOf(userData).refuse("a DOCTYPE");
}

void onStart(void* userData, const char* /*name*/, const char** /*attributes*/) {
  Judgement& judgement = judgementOf(userData);
  if (++judgement.depth > kMaxXmlDepth) judgement.refuse("nesting that is too deep");
}

void onEnd(void* userData, const char* /*name*/) {
  Judgement& judgement = judgementOf(userData);
  --judgement.depth;
  try {
    // The end of an empty-element tag is an event without bytes of its own.
    judgement.verdict.bEndTags.push_back(XML_GetCurrentByteCount(judgement.parser) != 0);
  } catch (...) {
    judgement.refuse("more elements than memory holds");
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
  const std::string reason =
      judgement.refusal != nullptr ? judgement.refusal : XML_ErrorString(XML_GetErrorCode(judgement.parser));
  return malformed(reason + " in line " + std::to_string(XML_GetCurrentLineNumber(judgement.parser)));
}

Result<XmlVerdict> judgeAs(std::span<const unsigned char> document, const char* encoding) {
  const Parser parser(XML_ParserCreate(encoding), &XML_ParserFree);
  if (!parser) return malformed("no memory to parse it");
  Judgement judgement{parser.get(), bStartsWithByteOrderMark(document), 0, {}, nullptr};
  installHandlers(parser.get(), judgement);

  // In one piece: handing over a long token in pieces makes Expat start it again each time.
  const auto* text = reinterpret_cast<const char*>(document.data());
  const XML_Status status = XML_Parse(parser.get(), text, static_cast<int>(document.size()), XML_TRUE);
  if (status != XML_STATUS_OK || judgement.refusal != nullptr) return failureOf(judgement);
  return std::move(judgement.verdict);
}

std::vector<unsigned char> utf8Of(std::span<const unsigned char> latin1) {
  std::vector<unsigned char> utf8;
  utf8.reserve(latin1.size() + latin1.size() / 8);
  for (const unsigned char byte : latin1) {
    if (byte >= 0x80) utf8.push_back(static_cast<unsigned char>(0xC0U | byte >> 6U));
    utf8.push_back(byte < 0x80 ? byte : static_cast<unsigned char>(0x80U | (byte & 0x3FU)));
  }
  return utf8;
}

}  // namespace

Result<XmlVerdict> judgeXml(std::span<const unsigned char> document) {
  // Expat would take UTF-16; no document in it is without a zero byte, and no other document has one.
  if (std::find(document.begin(), document.end(), 0) != document.end()) return malformed("a zero byte");
  if (document.size() > INT_MAX / 2) return malformed("more bytes than a parser takes");

  auto verdict = judgeAs(document, nullptr);
  if (!verdict || verdict.value().encoding == XmlEncoding::kUtf8) return verdict;
  // In ISO-8859-1 Expat takes three characters in names (0xAA, 0xB5, 0xBA) that it refuses in UTF-8. A document with
  // one of them could never be written again.
  return judgeAs(utf8Of(document), "UTF-8");
}

}  // namespace kelt::platform
