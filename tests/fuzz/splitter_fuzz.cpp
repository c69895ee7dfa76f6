// Command lines of the agent: the words are what stands between blanks outside quotes, and all of it.
//
// The input's first byte says how the rest is to be read: even, a byte per character; odd, four bytes per character,
// the most significant first, so that characters come that no text holds.

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/require.h"

#include "helper/unix_command_line_helper.h"

namespace {

using kelt::tests::require;
using Words = std::vector<std::string>;

std::wstring lineOf(std::span<const std::uint8_t> input) {
  std::wstring line;
  if (input.empty()) return line;
  const std::size_t width = input[0] % 2 == 0 ? 1 : 4;
  for (std::size_t at = 1; at + width <= input.size(); at += width) {
    std::uint32_t unit = 0;
    for (const std::uint8_t byte : input.subspan(at, width))
      unit = unit << 8U | byte;
    line += static_cast<wchar_t>(unit);
  }
  return line;
}

Words split(const std::wstring& line) {
  Words words;
  kelt::helper::unixCommandLineHelper().splitStringToParameters(line, words);
  return words;
}

constexpr std::string_view kBlanks = " \t\n\v\f\r";

/// Finds the words in the text, one after the other. That determines them: a word begins where blanks end, and ends
/// before the first blank that follows an even number of quotes.
void checkWords(std::string_view text, const Words& words) {
  for (const std::string& word : words) {
    const std::size_t start = text.find_first_not_of(kBlanks);
    require(!word.empty() && start != std::string_view::npos, "there is no word of nothing");
    text.remove_prefix(start);
    require(text.starts_with(word), "a word is a part of the line");
    text.remove_prefix(word.size());

    std::size_t quotes = 0;
    for (const char c : word) {
      if (c == '"') ++quotes;
      require(quotes % 2 != 0 || kBlanks.find(c) == std::string_view::npos, "a blank outside quotes ends a word");
    }
    const bool bBlankFollows = text.empty() || kBlanks.find(text.front()) != std::string_view::npos;
    require(bBlankFollows, "nothing but a blank ends a word");
    require(text.empty() || quotes % 2 == 0, "a blank in quotes does not end it");
  }
  require(text.find_first_not_of(kBlanks) == std::string_view::npos, "no word is lost");
}

/// The words in one line again.
std::wstring joined(const Words& words) {
  std::string line;
  for (const std::string& word : words)
    line += word + " ";
  return quorvane_com::orv::tellcomn_ansi_to_wide(line);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::wstring line = lineOf({data, size});
  const Words words = split(line);
  checkWords(ACharString(line.c_str()).str(), words);

  Words more = {"first"};
  kelt::helper::unixCommandLineHelper().splitStringToParameters(line, more);
  require(more.front() == "first" && Words(more.begin() + 1, more.end()) == words, "words are added to those there");

  const Words again = split(joined(words));
  // In an open quotation the blank that joins belongs to the word.
  const bool bOpen = !words.empty() && again.size() == words.size() && again.back() == words.back() + " ";
  if (bOpen) return 0;
  require(again == words, "words that are joined split alike");
  return 0;
}
