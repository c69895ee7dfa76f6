// Conversion from ISO-8859-1: every byte becomes the character of its number, in the text and in the file, and
// arguments are widened in the same way.

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "fuzz/require.h"
#include "fuzz/standard_output.h"
#include "support/private_device.h"

#include "helper/encoding.h"
#include "helper/unix_command_line_helper.h"

namespace {

using kelt::tests::require;

constexpr const char* kDirectory = "/tmp/site_list";
constexpr const char* kPath = "/tmp/site_list/SiteList.xml";

/// U+0000 to U+00FF in UTF-8: two bytes from U+0080 on.
std::string encoded(const std::string& latin1) {
  std::string utf8;
  for (const char c : latin1) {
    const unsigned code = static_cast<unsigned char>(c);
    if (code < 0x80) {
      utf8 += c;
    } else {
      utf8 += static_cast<char>(0xC0U | code >> 6U);
      utf8 += static_cast<char>(0x80U | (code & 0x3FU));
    }
  }
  return utf8;
}

void checkText(const kelt::helper::unixCommandLineHelper& agent, const std::string& text) {
  std::string utf8 = "old";
  require(agent.ConvertToUtf8(text.c_str(), utf8), "any text can be converted");
  require(utf8 == encoded(text), "a byte becomes the character of its number");
}

void checkFile(const kelt::helper::unixCommandLineHelper& agent, const std::string& content, const std::string& text) {
  kelt::tests::putFile(kPath, content, 0640);
  bool bConverted = false;
  const std::string printed =
      kelt::tests::standardOutputOf([&] { bConverted = agent.ConvertSiteListToUTF8(L"/tmp/site_list/SiteList.xml"); });
  require(bConverted, "any file can be converted");
  require(printed == "Successfully convert the sitelist.xml file to utf8\n", "it says so");
  require(kelt::tests::contentOf(kPath) == encoded(text), "the file is converted up to a zero byte");
  require(kelt::tests::modeOf(kPath) == 0640, "the file keeps its mode");
  require(kelt::tests::namesIn(kDirectory) == std::vector<std::string>{"SiteList.xml"}, "nothing else is left");
}

/// Room of one character less than needed must not be touched; with the room needed, all is written and no more.
void checkRoom(const std::string& text, const std::wstring& wide) {
  std::vector<wchar_t> room(text.size() + 2, L'#');
  auto capacity = static_cast<std::int32_t>(text.size());
  require(kelt::helper::convert_latin1_to_unicode(text.c_str(), room.data(), &capacity) == 0,
          "too little room is no error");
  require(room == std::vector<wchar_t>(text.size() + 2, L'#'), "too little room is left as it is");
  ++capacity;
  require(kelt::helper::convert_latin1_to_unicode(text.c_str(), room.data(), &capacity) == 0, "there is room");
  require(std::wstring(room.data()) == wide && room.back() == L'#', "no more than the text is written");
}

void checkWidening(const std::string& text) {
  const std::wstring wide = kelt::helper::latin1_to_unicode(text);
  require(wide.size() == text.size(), "a byte becomes one character");
  for (std::size_t i = 0; i < text.size(); ++i) {
    require(wide[i] == static_cast<wchar_t>(static_cast<unsigned char>(text[i])), "the character of its number");
  }
  checkRoom(text, wide);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string content(reinterpret_cast<const char*>(data), size);
  const std::string text = content.c_str();
  const kelt::helper::unixCommandLineHelper agent;
  checkText(agent, text);
  checkFile(agent, content, text);
  checkWidening(text);
  return 0;
}
