// XML documents: what is accepted is held, and written so that a reader sees the same again; what is put into a
// document comes back, or the document is not written. Each input is also taken for UTF-16, by a byte order mark before
// it.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "fuzz/require.h"
#include "support/xml_events.h"
#include "xml/document.h"
#include "xml/judge.h"

namespace {

using kelt::platform::XmlDocument;
using kelt::tests::require;
using kelt::tests::XmlEvents;

std::span<const unsigned char> bytesOf(std::string_view text) {
  return {reinterpret_cast<const unsigned char*>(text.data()), text.size()};
}

/// The name of the root element, from the first event that starts one.
std::string rootOf(const std::string& events) {
  const std::string lines = "\n" + events;
  const std::size_t start = lines.find("\nstart ") + 7;
  return lines.substr(start, lines.find_first_of(" \n", start) - start);
}

void checkWriting(const XmlDocument& document, const std::string& events, const std::string& root) {
  const auto once = document.serialise();
  require(once.ok(), "what was loaded can be written");
  require(XmlEvents::of(once.value()) == events, "a reader sees the same");
  const auto again = XmlDocument::load(bytesOf(once.value()), root);
  require(again.ok(), "what was written can be loaded");
  const auto twice = again.value()->serialise();
  require(twice.ok() && twice.value() == once.value(), "writing is stable");
}

/// Puts the input itself, and a name from it, into the document.
void checkEditing(XmlDocument& document, const std::string& root, const std::string& input) {
  const std::string value = input.c_str();
  const std::string name = value.substr(0, value.size() % 16);
  kelt::platform::XmlElement added{&document, document.addChild(document.root(), name, value)};
  if (!added.node) return;
  document.setAttribute(document.root(), "put", value);
  document.setText(document.root(), value);
  const auto text = document.serialise();
  if (!text) return;

  const auto again = XmlDocument::load(bytesOf(text.value()), root);
  require(again.ok(), "what was written can be loaded");
  const pugi::xml_node read = again.value()->root();
  require(kelt::platform::textOf(read) == value, "a text comes back");
  require(read.attribute("put").value() == value, "an attribute comes back");
  require(read.last_child().name() == name, "a name comes back");
  require(kelt::platform::textOf(read.last_child()) == value, "the text of a new element comes back");
}

void checkLoading(const std::string& input) {
  if (!kelt::platform::judgeXml(bytesOf(input))) return;
  const std::string events = XmlEvents::of(input);
  require(events != "refused", "what we accept, a plain parser accepts");
  const std::string root = rootOf(events);
  const auto document = XmlDocument::load(bytesOf(input), root);
  require(document.ok(), "what is accepted can be held");
  checkWriting(*document.value(), events, root);
  checkEditing(*document.value(), root, input);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);
  checkEditing(*XmlDocument::create("r"), "r", input);
  checkLoading(input);
  checkLoading("\xFF\xFE" + input);
  checkLoading("\xFE\xFF" + input);
  return 0;
}
